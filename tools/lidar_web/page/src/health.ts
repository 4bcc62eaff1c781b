// How the stream does: rates and ages as the page sees them, losses as the server tells them.

import type { Figures } from "./stream.js";

/** With the time between two looks it is less than a second. */
export const kStallMs = 700;
const kRateWindowMs = 2000;

export type LinkState = "connecting" | "open" | "closed";

/** All clocks are the page's, milliseconds since the epoch. */
export interface HealthInput {
  nowMs: number;
  link: LinkState;
  isPaused: boolean;
  figures: Figures | null;
  figuresAtMs: number;
  /** Since when a frame is asked for; null while none is, as the one before is being drawn. */
  askedAtMs: number | null;
  /** When frames arrived, oldest first. */
  arrivalsMs: readonly number[];
  /** When the server had the frame that arrived last; null without one. */
  newestTakenMs: number | null;
  /** When the server had the shown frame; null without a frame. */
  shownTakenMs: number | null;
}

export type StateName =
  "no server" | "no source" | "silent" | "stalled" | "paused" | "live" | "waiting";

export interface Health {
  state: StateName;
  text: string;
  framesPerS: number;
  ageMs: number | null;
}

export function framesPerSecond(arrivalsMs: readonly number[], nowMs: number): number {
  const count = arrivalsMs.filter((at) => at > nowMs - kRateWindowMs && at <= nowMs).length;
  return (count * 1000) / kRateWindowMs;
}

/** What arrived too long ago to count is dropped. */
export function keepRecent(arrivalsMs: readonly number[], nowMs: number): number[] {
  return arrivalsMs.filter((at) => at > nowMs - kRateWindowMs);
}

export function clockText(ms: number): string {
  const two = (n: number) => String(n).padStart(2, "0");
  const at = new Date(ms);
  return `${two(at.getHours())}:${two(at.getMinutes())}:${two(at.getSeconds())}`;
}

function secondsText(ms: number): string {
  const seconds = ms / 1000;
  return seconds < 10 ? `${seconds.toFixed(1)} s` : `${String(Math.floor(seconds))} s`;
}

/** Since the last packet: a frame that came after the figures shows that there were later ones. */
function silenceOf(input: HealthInput, figures: Figures): number | null {
  if (figures.silent_s === null) return null;
  const told = figures.silent_s * 1000 + (input.nowMs - input.figuresAtMs);
  return input.newestTakenMs === null
    ? told
    : Math.min(told, Math.max(0, input.nowMs - input.newestTakenMs));
}

function stateOf(input: HealthInput): { state: StateName; text: string } {
  const { nowMs, figures } = input;
  if (input.link !== "open")
    return { state: "no server", text: "server not reached, trying again" };
  // The server sends its figures twice a second, so three of them are missing.
  if (figures === null || nowMs - input.figuresAtMs > 2000) {
    return { state: "no server", text: "server does not answer" };
  }
  const silentMs = silenceOf(input, figures);
  if (silentMs !== null && silentMs > kStallMs) {
    return {
      state: "silent",
      text: `node silent since ${clockText(nowMs - silentMs)} (${secondsText(silentMs)})`,
    };
  }
  if (!figures.source_ok) return { state: "no source", text: `no source: ${figures.source}` };
  if (silentMs === null) return { state: "waiting", text: "no packet yet" };
  if (input.isPaused) return { state: "paused", text: "paused" };
  if (input.askedAtMs !== null && nowMs - input.askedAtMs > kStallMs) {
    return { state: "stalled", text: "packets come, but no frame" };
  }
  return { state: "live", text: "live" };
}

export function healthOf(input: HealthInput): Health {
  return {
    ...stateOf(input),
    framesPerS: framesPerSecond(input.arrivalsMs, input.nowMs),
    ageMs: input.shownTakenMs === null ? null : Math.max(0, input.nowMs - input.shownTakenMs),
  };
}

/** Milliseconds for people: tenths while they are few. */
export function millisecondsText(ms: number | null): string {
  if (ms === null) return "–";
  if (Math.abs(ms) < 10) return `${ms.toFixed(1)} ms`;
  if (Math.abs(ms) < 10_000) return `${String(Math.round(ms))} ms`;
  return secondsText(ms);
}

export function countText(count: number | null): string {
  return count === null ? "–" : String(count);
}
