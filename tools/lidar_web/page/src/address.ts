// The address of the page: its part after `#` holds the settings.

import { hashFromSettings, type Settings } from "./settings.js";

/** The camera moves often; the address follows when it stands. */
const kAfterMs = 300;

export class Address {
  private timer: number | undefined;

  constructor(private readonly settings: () => Settings) {}

  /** Writes the settings as they are when nothing has changed for a while. */
  writeSoon(): void {
    window.clearTimeout(this.timer);
    this.timer = window.setTimeout(() => {
      this.write();
    }, kAfterMs);
  }

  write(): void {
    window.clearTimeout(this.timer);
    const hash = hashFromSettings(this.settings());
    history.replaceState(null, "", hash === "" ? location.pathname : `#${hash}`);
  }
}
