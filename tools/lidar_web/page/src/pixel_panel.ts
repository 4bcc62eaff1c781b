// The table of the hovered and the pinned pixels, their marks and their plot.

import { all, byId, setText } from "./dom.js";
import { pixelAt, pointAt, type Directions, type Frame, type Vec3 } from "./frame.js";
import type { FrameHistory } from "./history.js";
import { project, type Matrix, type Size } from "./picking.js";
import { kPinNames, type Pins } from "./pins.js";
import { distanceOf, infoOf, kInfoNames, kNoInfo } from "./pixel_info.js";
import { middleOf } from "./range_images.js";
import { drawPlot } from "./range_plot.js";

export interface Marked {
  hovered: number | null;
  pins: Pins;
}

const kMarkClasses = ["hovered", "pin-a", "pin-b"] as const;

/** A mark for each class in a layer, hidden until it has a place. */
function makeMarks(layer: HTMLElement): HTMLElement[] {
  return kMarkClasses.map((name, i) => {
    const mark = document.createElement("div");
    mark.className = `mark ${name}`;
    mark.dataset.name = i === 0 ? "" : kPinNames[i - 1];
    mark.hidden = true;
    layer.append(mark);
    return mark;
  });
}

function placesOf(marked: Marked): (number | null)[] {
  return [marked.hovered, ...kPinNames.map((_, i) => marked.pins.at(i) ?? null)];
}

export class PixelPanel {
  private readonly cells: HTMLElement[][] = [];
  private readonly distance = byId("distance", HTMLElement);
  private readonly clear = byId("clear-pins", HTMLButtonElement);
  private readonly plot = byId("plot", HTMLCanvasElement);
  private readonly sceneMarks = makeMarks(byId("marks", HTMLElement));
  private readonly imageMarks = all(".image-marks", HTMLElement).map(makeMarks);

  constructor() {
    const body = byId("pixel-rows", HTMLTableSectionElement);
    for (const [, label] of kInfoNames) {
      const row = body.insertRow();
      const head = document.createElement("th");
      head.scope = "row";
      head.textContent = label;
      row.append(head);
      this.cells.push(kMarkClasses.map(() => row.insertCell()));
    }
  }

  showValues(frame: Frame | null, directions: Directions | null, marked: Marked): void {
    const infos = placesOf(marked).map((place) =>
      frame === null || place === null ? kNoInfo : infoOf(frame, directions, place),
    );
    kInfoNames.forEach(([name], row) => {
      infos.forEach((info, column) => {
        setText(this.cells[row][column], info[name]);
      });
    });
    this.clear.disabled = marked.pins.length === 0;
    setText(this.distance, this.distanceText(frame, directions, marked.pins));
  }

  /** One line a pin, the newest frame at the right. */
  showPlot(history: FrameHistory, pins: Pins): void {
    const style = getComputedStyle(document.documentElement);
    const colour = (name: string) => style.getPropertyValue(name).trim();
    const lines = pins.map((place, i) => ({
      ranges: history.ranges(place),
      colour: colour(i === 0 ? "--pin-a" : "--pin-b"),
    }));
    drawPlot(this.plot, lines, colour("--edge"), colour("--quiet"));
  }

  showImageMarks(marked: Marked): void {
    const places = placesOf(marked);
    for (const marks of this.imageMarks) {
      marks.forEach((mark, i) => {
        const place = places[i];
        mark.hidden = place === null;
        if (place === null) return;
        const { left, top } = middleOf(pixelAt(place));
        mark.style.left = `${String(left)}%`;
        mark.style.top = `${String(top)}%`;
      });
    }
  }

  /** A pixel without a return has no place among the points. */
  showSceneMarks(
    frame: Frame | null,
    directions: Directions | null,
    marked: Marked,
    matrix: Matrix,
    size: Size,
  ): void {
    placesOf(marked).forEach((place, i) => {
      const mark = this.sceneMarks[i];
      const point: Vec3 | null =
        frame === null || directions === null || place === null
          ? null
          : pointAt(frame, directions, place);
      const at = point === null ? null : project(matrix, size, point);
      mark.hidden = at === null;
      if (at === null) return;
      mark.style.left = `${String(at.x)}px`;
      mark.style.top = `${String(at.y)}px`;
    });
  }

  private distanceText(frame: Frame | null, directions: Directions | null, pins: Pins): string {
    if (pins.length === 0) return "Click a pixel or a point to pin it.";
    if (pins.length === 1) return "Click another one for their distance.";
    const metres =
      frame === null || directions === null
        ? null
        : distanceOf(frame, directions, pins[0], pins[1]);
    return `A to B: ${metres === null ? "no return" : `${metres.toFixed(3)} m`}`;
  }
}
