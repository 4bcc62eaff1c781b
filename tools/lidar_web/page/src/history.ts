// The last frames, and which of them is shown.

import { rangeAt, type Frame } from "./frame.js";

/** About 60 MB with two echoes and flags. */
export const kHistoryFrames = 100;

export class FrameHistory {
  private frames: Frame[] = [];
  private shownIndex = -1;
  private paused = false;

  get isPaused(): boolean {
    return this.paused;
  }

  /** Null before the first frame. */
  get shown(): Frame | null {
    return this.shownIndex < 0 ? null : this.frames[this.shownIndex];
  }

  get length(): number {
    return this.frames.length;
  }

  /** How many kept frames are newer than the one shown. */
  get newer(): number {
    return this.frames.length - 1 - this.shownIndex;
  }

  /** @param show whether it becomes the shown one; otherwise that stays until it is too old */
  push(frame: Frame, show: boolean): void {
    this.frames.push(frame);
    if (this.frames.length > kHistoryFrames) {
      this.frames.shift();
      this.shownIndex = Math.max(0, this.shownIndex - 1);
    }
    if (show || this.shownIndex < 0) this.shownIndex = this.frames.length - 1;
  }

  pause(): void {
    this.paused = true;
  }

  resume(): void {
    this.paused = false;
    this.shownIndex = this.frames.length - 1;
  }

  /** False at the oldest frame kept, or forward at the newest. */
  step(by: 1 | -1): boolean {
    const index = this.shownIndex + by;
    if (index < 0 || index >= this.frames.length) return false;
    this.shownIndex = index;
    return true;
  }

  /** Range of a place in the frames up to the one shown, oldest first; metres, 0 is no return. */
  ranges(place: number): number[] {
    return this.frames.slice(0, this.shownIndex + 1).map((frame) => rangeAt(frame, place));
  }
}
