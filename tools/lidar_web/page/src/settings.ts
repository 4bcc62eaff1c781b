// What the user has set. It stands in the address after `#`, so a link shows the same view.

import type { Vec3 } from "./frame.js";

export const kColourings = ["range", "reflectivity", "height", "echo", "ground", "flags"] as const;
export type Colouring = (typeof kColourings)[number];
export const kEchoChoices = ["both", "0", "1"] as const;
export type EchoChoice = (typeof kEchoChoices)[number];
export const kThemes = ["auto", "light", "dark"] as const;
export type Theme = (typeof kThemes)[number];

export interface Limits {
  low: number;
  high: number;
}

export interface CameraPose {
  position: Vec3;
  target: Vec3;
}

export interface Settings {
  colouring: Colouring;
  echoes: EchoChoice;
  /** Pixels of the page. */
  pointSize: number;
  /** Metres. At its end the limit is off: farther points are shown too. */
  range: Limits;
  reflectivity: Limits;
  grid: boolean;
  theme: Theme;
  /** Null: the page's own first view. */
  camera: CameraPose | null;
}

export const kMaxRange = 60;
export const kMaxReflectivity = 255;
export const kPointSizes = { low: 1, high: 8 };

export function defaultSettings(): Settings {
  return {
    colouring: "range",
    echoes: "both",
    pointSize: 2,
    range: { low: 0, high: 40 },
    reflectivity: { low: 0, high: kMaxReflectivity },
    grid: true,
    theme: "auto",
    camera: null,
  };
}

function isOneOf<T extends string>(values: readonly T[], text: string | null): text is T {
  return text !== null && (values as readonly string[]).includes(text);
}

function numbersOf(text: string | null, count: number): number[] | null {
  if (text === null) return null;
  const numbers = text.split(",").map((part) => (part === "" ? NaN : Number(part)));
  return numbers.length === count && numbers.every((n) => Number.isFinite(n)) ? numbers : null;
}

function limitsOf(text: string | null, highest: number): Limits | null {
  const numbers = numbersOf(text, 2);
  if (numbers === null || numbers[0] < 0 || numbers[0] >= numbers[1] || numbers[1] > highest)
    return null;
  return { low: numbers[0], high: numbers[1] };
}

function cameraOf(text: string | null): CameraPose | null {
  const n = numbersOf(text, 6);
  if (n === null || n.some((value) => Math.abs(value) > 1e4)) return null;
  return { position: [n[0], n[1], n[2]], target: [n[3], n[4], n[5]] };
}

/** From the part of an address after `#`; what is missing or senseless stays at its default. */
export function settingsFromHash(hash: string): Settings {
  const settings = defaultSettings();
  const values = new URLSearchParams(hash.replace(/^#/, ""));
  const colouring = values.get("colour");
  if (isOneOf(kColourings, colouring)) settings.colouring = colouring;
  const echoes = values.get("echo");
  if (isOneOf(kEchoChoices, echoes)) settings.echoes = echoes;
  const theme = values.get("theme");
  if (isOneOf(kThemes, theme)) settings.theme = theme;
  const size = numbersOf(values.get("size"), 1);
  if (size !== null && size[0] >= kPointSizes.low && size[0] <= kPointSizes.high)
    settings.pointSize = size[0];
  settings.range = limitsOf(values.get("range"), kMaxRange) ?? settings.range;
  settings.reflectivity = limitsOf(values.get("refl"), kMaxReflectivity) ?? settings.reflectivity;
  if (values.get("grid") === "0") settings.grid = false;
  settings.camera = cameraOf(values.get("camera"));
  return settings;
}

/** Only what differs from the defaults, so that a plain page has a plain address. */
export function hashFromSettings(settings: Settings): string {
  const usual = defaultSettings();
  const parts: string[] = [];
  const add = (name: string, value: string, usualValue: string) => {
    if (value !== usualValue) parts.push(`${name}=${value}`);
  };
  const pair = (limits: Limits) => `${String(limits.low)},${String(limits.high)}`;
  add("colour", settings.colouring, usual.colouring);
  add("echo", settings.echoes, usual.echoes);
  add("size", String(settings.pointSize), String(usual.pointSize));
  add("range", pair(settings.range), pair(usual.range));
  add("refl", pair(settings.reflectivity), pair(usual.reflectivity));
  add("grid", settings.grid ? "1" : "0", "1");
  add("theme", settings.theme, usual.theme);
  if (settings.camera !== null) {
    const { position, target } = settings.camera;
    parts.push(
      `camera=${[...position, ...target].map((n) => String(Math.round(n * 1000) / 1000)).join(",")}`,
    );
  }
  return parts.join("&");
}
