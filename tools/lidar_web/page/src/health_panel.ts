// The line at the top: how the stream does.

import { byId, setText } from "./dom.js";
import type { Frame } from "./frame.js";
import { countText, millisecondsText, type Health } from "./health.js";
import type { Figures } from "./stream.js";

export class HealthPanel {
  private readonly state = byId("state", HTMLElement);
  private readonly fields = {
    rate: byId("rate", HTMLElement),
    latency: byId("latency", HTMLElement),
    age: byId("age", HTMLElement),
    missingBlocks: byId("missing-blocks", HTMLElement),
    beforeHost: byId("lost-before-host", HTMLElement),
    kernel: byId("lost-kernel", HTMLElement),
    ring: byId("lost-ring", HTMLElement),
    incomplete: byId("incomplete", HTMLElement),
  };

  /** @param latencyMs of the frame drawn last; null without one */
  show(
    health: Health,
    latencyMs: number | null,
    frame: Frame | null,
    figures: Figures | null,
  ): void {
    setText(this.state, health.text);
    this.state.dataset.state = health.state;
    const { fields } = this;
    setText(fields.rate, health.framesPerS.toFixed(1));
    setText(fields.latency, millisecondsText(latencyMs));
    setText(fields.age, millisecondsText(health.ageMs));
    const total = figures === null ? "" : ` (${String(figures.missing_blocks)})`;
    setText(fields.missingBlocks, frame === null ? "–" : `${String(frame.missingBlocks)}${total}`);
    fields.missingBlocks.classList.toggle("bad", frame !== null && frame.missingBlocks > 0);
    if (figures === null) return;
    this.count(fields.beforeHost, figures.lost.before_host);
    this.count(fields.kernel, figures.lost.kernel);
    this.count(fields.ring, figures.lost.ring);
    this.count(fields.incomplete, figures.frames.incomplete);
  }

  private count(field: HTMLElement, count: number | null): void {
    setText(field, countText(count));
    field.classList.toggle("bad", count !== null && count > 0);
  }
}
