// A line of text over the points that goes by itself.

import { byId } from "./dom.js";

const kShownMs = 6000;

export class Notice {
  private readonly element = byId("notice", HTMLElement);
  private timer: number | undefined;

  tell(text: string): void {
    this.element.textContent = text;
    this.element.hidden = false;
    window.clearTimeout(this.timer);
    this.timer = window.setTimeout(() => {
      this.element.hidden = true;
    }, kShownMs);
  }
}
