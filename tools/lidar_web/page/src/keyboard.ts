// The keyboard keys, for the handler and for the list under `?`.

import { kColourings } from "./settings.js";

export type Action =
  | { do: "pause" | "help" | "pick-echo" | "grid" | "clear" | "link" | "theme" | "save" | "story" }
  | { do: "step"; by: 1 | -1 }
  | { do: "view"; name: "reset" | "top" | "front" | "side" }
  | { do: "colour"; index: number }
  | { do: "size"; by: number }
  | { do: "turn"; around: number; up: number; zoom: number };

interface Key {
  keys: readonly string[];
  label: string;
  meaning: string;
  /** `index` is the place of the pressed key in `keys`. */
  action: (index: number) => Action;
}

/** Radians a press. */
const kTurn = Math.PI / 36;
const kZoom = 0.9;
const kTurns = [
  [-kTurn, 0],
  [kTurn, 0],
  [0, kTurn],
  [0, -kTurn],
] as const;

export const kKeys: readonly Key[] = [
  { keys: [" "], label: "space", meaning: "pause, go on", action: () => ({ do: "pause" }) },
  {
    keys: [",", "."],
    label: ", .",
    meaning: "a frame back, a frame forward (pauses)",
    action: (i) => ({ do: "step", by: i === 0 ? -1 : 1 }),
  },
  {
    keys: ["1", "2", "3", "4", "5", "6"],
    label: "1 – 6",
    meaning: `colour by ${kColourings.join(", ")}`,
    action: (i) => ({ do: "colour", index: i }),
  },
  {
    keys: ["e"],
    label: "E",
    meaning: "both echoes, echo 0, echo 1",
    action: () => ({ do: "pick-echo" }),
  },
  {
    keys: ["[", "]"],
    label: "[ ]",
    meaning: "smaller, larger points",
    action: (i) => ({ do: "size", by: i === 0 ? -0.5 : 0.5 }),
  },
  { keys: ["r"], label: "R", meaning: "first view", action: () => ({ do: "view", name: "reset" }) },
  { keys: ["t"], label: "T", meaning: "from above", action: () => ({ do: "view", name: "top" }) },
  {
    keys: ["f"],
    label: "F",
    meaning: "from the front, as the sensor looks",
    action: () => ({ do: "view", name: "front" }),
  },
  {
    keys: ["s"],
    label: "S",
    meaning: "from the side",
    action: () => ({ do: "view", name: "side" }),
  },
  {
    keys: ["ArrowLeft", "ArrowRight", "ArrowUp", "ArrowDown"],
    label: "arrows",
    meaning: "turn the view",
    action: (i) => ({ do: "turn", around: kTurns[i][0], up: kTurns[i][1], zoom: 1 }),
  },
  {
    keys: ["+", "-"],
    label: "+ -",
    meaning: "nearer, farther",
    action: (i) => ({ do: "turn", around: 0, up: 0, zoom: i === 0 ? kZoom : 1 / kZoom }),
  },
  { keys: ["g"], label: "G", meaning: "grid and rings", action: () => ({ do: "grid" }) },
  { keys: ["c"], label: "C", meaning: "clear the pins", action: () => ({ do: "clear" }) },
  {
    keys: ["w"],
    label: "W",
    meaning: "why: the story of the last pin, with lidar_web --story",
    action: () => ({ do: "story" }),
  },
  {
    keys: ["p"],
    label: "P",
    meaning: "save the view as a picture",
    action: () => ({ do: "save" }),
  },
  { keys: ["l"], label: "L", meaning: "copy a link to this view", action: () => ({ do: "link" }) },
  {
    keys: ["d"],
    label: "D",
    meaning: "light, dark or as the system has it",
    action: () => ({ do: "theme" }),
  },
  { keys: ["?"], label: "?", meaning: "this list", action: () => ({ do: "help" }) },
];

/** Null for a key without a meaning. */
export function actionOf(key: string): Action | null {
  const pressed = key.length === 1 ? key.toLowerCase() : key;
  for (const entry of kKeys) {
    const index = entry.keys.indexOf(pressed);
    if (index >= 0) return entry.action(index);
  }
  return null;
}

/** Fields take keys themselves: a list all, a slider the arrows, a button or box the space. */
function isTakenBy(target: EventTarget | null, key: string): boolean {
  if (target instanceof HTMLSelectElement) return true;
  if (target instanceof HTMLInputElement && target.type === "range") return key.startsWith("Arrow");
  return key === " " && (target instanceof HTMLButtonElement || target instanceof HTMLInputElement);
}

export function listenToKeys(act: (action: Action) => void): void {
  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || isTakenBy(event.target, event.key))
      return;
    if (document.querySelector("dialog[open]") !== null) return;
    const action = actionOf(event.key);
    if (action === null) return;
    event.preventDefault();
    act(action);
  });
}

/** Terms and meanings into a <dl>. */
export function fillKeyList(list: HTMLElement): void {
  for (const { label, meaning } of kKeys) {
    const term = document.createElement("dt");
    term.textContent = label;
    const text = document.createElement("dd");
    text.textContent = meaning;
    list.append(term, text);
  }
}
