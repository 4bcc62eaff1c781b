// Light or dark: as the system has it, or as the user wants it.

import { kThemes, type Theme } from "./settings.js";

const kSystemIsLight = window.matchMedia("(prefers-color-scheme: light)");

export function isLight(theme: Theme): boolean {
  return theme === "auto" ? kSystemIsLight.matches : theme === "light";
}

export function nextTheme(theme: Theme): Theme {
  return kThemes[(kThemes.indexOf(theme) + 1) % kThemes.length];
}

export function onSystemTheme(change: () => void): void {
  kSystemIsLight.addEventListener("change", change);
}

/** Colours of the style sheet that a canvas needs. */
export function styleColour(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}
