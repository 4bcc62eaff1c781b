// The form with the settings of the points.

import { byId, setText } from "./dom.js";
import { kColourings, kEchoChoices, kMaxRange, type Limits, type Settings } from "./settings.js";

/** The two ends of a limit cannot pass each other; the one that was moved wins. */
export function orderedLimits(low: number, high: number, lowMoved: boolean, least: number): Limits {
  if (high - low >= least) return { low, high };
  return lowMoved ? { low: high - least, high } : { low, high: low + least };
}

/** The scale needs some length. */
const kLeastRange = 0.5;
const kLeastReflectivity = 1;

export class SettingsPanel {
  private readonly colouring = byId("colouring", HTMLSelectElement);
  private readonly echoes = byId("echoes", HTMLSelectElement);
  private readonly pointSize = byId("point-size", HTMLInputElement);
  private readonly rangeLow = byId("range-low", HTMLInputElement);
  private readonly rangeHigh = byId("range-high", HTMLInputElement);
  private readonly reflectivityLow = byId("reflectivity-low", HTMLInputElement);
  private readonly reflectivityHigh = byId("reflectivity-high", HTMLInputElement);
  private readonly grid = byId("grid", HTMLInputElement);
  private readonly rangeText = byId("range-text", HTMLOutputElement);
  private readonly reflectivityText = byId("reflectivity-text", HTMLOutputElement);

  /** @param change called with what the user has changed */
  constructor(change: (changed: Partial<Settings>) => void) {
    byId("settings", HTMLFormElement).addEventListener("input", (event) => {
      change(this.changed(event.target));
    });
    byId("settings", HTMLFormElement).addEventListener("submit", (event) => {
      event.preventDefault();
    });
  }

  show(settings: Settings): void {
    this.colouring.value = settings.colouring;
    this.echoes.value = settings.echoes;
    this.pointSize.valueAsNumber = settings.pointSize;
    this.rangeLow.valueAsNumber = settings.range.low;
    this.rangeHigh.valueAsNumber = settings.range.high;
    this.reflectivityLow.valueAsNumber = settings.reflectivity.low;
    this.reflectivityHigh.valueAsNumber = settings.reflectivity.high;
    this.grid.checked = settings.grid;
    const beyond = settings.range.high >= kMaxRange ? " and more" : "";
    setText(
      this.rangeText,
      `${String(settings.range.low)} to ${String(settings.range.high)} m${beyond}`,
    );
    setText(
      this.reflectivityText,
      `${String(settings.reflectivity.low)} to ${String(settings.reflectivity.high)}`,
    );
  }

  /** What the output mode does not carry cannot be coloured by. */
  allow(hasReflectivity: boolean, hasGround: boolean, hasFlags: boolean): void {
    for (const option of this.colouring.options) {
      option.disabled =
        (option.value === "reflectivity" && !hasReflectivity) ||
        (option.value === "ground" && !hasGround) ||
        (option.value === "flags" && !hasFlags);
    }
  }

  private changed(target: EventTarget | null): Partial<Settings> {
    switch (target) {
      case this.colouring:
        return { colouring: kColourings[this.colouring.selectedIndex] };
      case this.echoes:
        return { echoes: kEchoChoices[this.echoes.selectedIndex] };
      case this.pointSize:
        return { pointSize: this.pointSize.valueAsNumber };
      case this.grid:
        return { grid: this.grid.checked };
      case this.rangeLow:
      case this.rangeHigh:
        return {
          range: orderedLimits(
            this.rangeLow.valueAsNumber,
            this.rangeHigh.valueAsNumber,
            target === this.rangeLow,
            kLeastRange,
          ),
        };
      case this.reflectivityLow:
      case this.reflectivityHigh:
        return {
          reflectivity: orderedLimits(
            this.reflectivityLow.valueAsNumber,
            this.reflectivityHigh.valueAsNumber,
            target === this.reflectivityLow,
            kLeastReflectivity,
          ),
        };
      default:
        return {};
    }
  }
}
