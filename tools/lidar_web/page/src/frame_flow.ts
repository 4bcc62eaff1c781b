// Which frames are asked for, kept and shown. A frame is asked for when the one before has been
// drawn, so a slow browser gets fewer and never old ones.

import { ServerClock } from "./clock.js";
import type { Directions, Frame } from "./frame.js";
import { keepRecent, type LinkState } from "./health.js";
import { FrameHistory } from "./history.js";
import { Link } from "./link.js";
import type { Figures, Hello, Transfer } from "./stream.js";

export interface FlowEvents {
  onHello: (hello: Hello) => void;
  onDirections: (directions: Directions) => void;
  /** Another frame is to be shown. */
  onShown: (frame: Frame) => void;
  onChange: () => void;
}

export class FrameFlow {
  readonly history = new FrameHistory();
  readonly clock = new ServerClock();
  linkState: LinkState = "connecting";
  figures: Figures | null = null;
  figuresAtMs = 0;
  /** Since when a frame is asked for; null while none is. */
  askedAtMs: number | null = null;
  arrivalsMs: number[] = [];
  /** When the server had the newest frame, by the page's clock. */
  newestTakenMs: number | null = null;

  private readonly link: Link;
  private stepIsWaiting = false;
  private isDrawn = true;

  constructor(
    url: string,
    private readonly events: FlowEvents,
  ) {
    this.link = new Link(url, {
      onState: (state) => {
        this.takeState(state);
      },
      onText: (message) => {
        this.takeText(message);
      },
      onBinary: (message) => {
        if (message.kind === "frame") this.takeFrame(message.frame, message.transfer);
        else this.events.onDirections(message.directions);
      },
    });
  }

  togglePause(): void {
    const { history } = this;
    if (history.isPaused) {
      history.resume();
      this.stepIsWaiting = false;
      if (history.shown !== null) this.events.onShown(history.shown);
      this.ask();
    } else {
      history.pause();
    }
    this.events.onChange();
  }

  /** Forward of the newest frame the server is asked for one more. */
  step(by: 1 | -1): void {
    const { history } = this;
    history.pause();
    if (history.step(by) && history.shown !== null) {
      this.events.onShown(history.shown);
    } else if (by === 1) {
      this.stepIsWaiting = true;
      this.ask();
    }
    this.events.onChange();
  }

  /** The shown frame has been drawn. */
  drawn(): void {
    if (this.isDrawn) return;
    this.isDrawn = true;
    if (!this.history.isPaused) this.ask();
  }

  private ask(): void {
    if (this.askedAtMs !== null || this.linkState !== "open") return;
    this.askedAtMs = Date.now();
    // Modes without flags need no plane of them.
    this.link.pull(this.history.shown?.knownFlags !== 0);
  }

  private takeState(state: LinkState): void {
    this.linkState = state;
    this.askedAtMs = null;
    if (state === "open") {
      this.clock.forget();
      this.figures = null;
      this.figuresAtMs = Date.now();
      if (!this.history.isPaused || this.stepIsWaiting || this.history.shown === null) this.ask();
    }
    this.events.onChange();
  }

  private takeText(message: Hello | Figures): void {
    if (message.type === "hello") {
      this.events.onHello(message);
    } else {
      this.figures = message;
      this.figuresAtMs = Date.now();
    }
    this.events.onChange();
  }

  private takeFrame(frame: Frame, transfer: Transfer): void {
    const now = Date.now();
    this.askedAtMs = null;
    this.clock.take(transfer, now);
    this.newestTakenMs = this.clock.pageMs(frame.takenUs);
    this.arrivalsMs = [...keepRecent(this.arrivalsMs, now), now];
    const show = !this.history.isPaused || this.stepIsWaiting || this.history.shown === null;
    this.stepIsWaiting = false;
    this.history.push(frame, show);
    if (show) {
      this.isDrawn = false;
      this.events.onShown(frame);
    }
    // Another mode, whose flags were not asked for.
    if (frame.flags === null && frame.knownFlags !== 0) this.ask();
    this.events.onChange();
  }
}
