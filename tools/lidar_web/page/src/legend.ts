// The colour bar with its unit, or the classes with their colours.

import {
  kEchoCategories,
  kGroundCategories,
  knownCategories,
  shaded,
  type Category,
} from "./colours.js";
import { drawBar } from "./range_images.js";
import type { Colouring, Settings } from "./settings.js";
import { colourScale } from "./shown.js";

const kTitles: Record<Colouring, string> = {
  range: "range, m",
  reflectivity: "reflectivity, 0 to 255",
  height: "height z, m",
  echo: "echo",
  ground: "ground label",
  flags: "flags",
};

/** Null for colourings on a scale. */
export function categoriesOf(colouring: Colouring, knownFlags: number): readonly Category[] | null {
  switch (colouring) {
    case "echo":
      return kEchoCategories;
    case "ground":
      return kGroundCategories;
    case "flags":
      return knownCategories(knownFlags);
    default:
      return null;
  }
}

function textElement(name: string, text: string): HTMLElement {
  const element = document.createElement(name);
  element.textContent = text;
  return element;
}

function scaleElements(settings: Settings, ground: number, light: boolean): HTMLElement[] {
  const { low, high } = colourScale(settings, ground);
  const digits = settings.colouring === "reflectivity" ? 0 : 1;
  const bar = document.createElement("canvas");
  drawBar(bar, light);
  const ends = document.createElement("div");
  ends.className = "ends";
  for (const value of [low, (low + high) / 2, high])
    ends.append(textElement("span", value.toFixed(digits)));
  return [bar, ends];
}

function classElements(categories: readonly Category[], light: boolean): HTMLElement[] {
  const list = document.createElement("div");
  list.className = "classes";
  for (const { name, colour } of categories) {
    const swatch = document.createElement("span");
    swatch.className = "swatch";
    swatch.style.backgroundColor = `rgb(${shaded(colour, light).join(" ")})`;
    const entry = document.createElement("span");
    entry.append(swatch, name);
    list.append(entry);
  }
  return [list];
}

/** Called with each frame; it builds nothing anew that would be the same. */
export function showLegend(
  parent: HTMLElement,
  settings: Settings,
  ground: number,
  knownFlags: number,
  light: boolean,
): void {
  const { colouring, range, reflectivity } = settings;
  const key = JSON.stringify([colouring, range, reflectivity, ground, knownFlags, light]);
  if (parent.dataset.key === key) return;
  parent.dataset.key = key;
  const categories = categoriesOf(colouring, knownFlags);
  parent.replaceChildren(
    textElement("div", kTitles[settings.colouring]),
    ...(categories === null
      ? scaleElements(settings, ground, light)
      : classElements(categories, light)),
  );
}
