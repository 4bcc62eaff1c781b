// The connection to the server. It comes back by itself.

import {
  decodeBinary,
  decodeText,
  encodePull,
  kSubprotocol,
  type BinaryMessage,
  type Figures,
  type Hello,
} from "./stream.js";
import type { LinkState } from "./health.js";

const kFirstWaitMs = 250;
const kLongestWaitMs = 1000;
/** A connection without a message for this long is given up: figures come twice a second. */
const kDeadAfterMs = 5000;

/** Before the n-th try after a break, n from 0: doubled up to a second. */
export function waitBeforeTry(n: number): number {
  return Math.min(kFirstWaitMs * 2 ** n, kLongestWaitMs);
}

export interface LinkEvents {
  onState: (state: LinkState) => void;
  onText: (message: Hello | Figures) => void;
  onBinary: (message: BinaryMessage) => void;
}

export class Link {
  private socket: WebSocket | null = null;
  private tries = 0;
  private lastMessageMs = 0;
  private timer: number | undefined;

  constructor(
    private readonly url: string,
    private readonly events: LinkEvents,
  ) {
    window.setInterval(() => {
      this.dropIfDead();
    }, 1000);
    this.connect();
  }

  /** Asks for one frame; nothing while there is no connection. */
  pull(withFlags: boolean): void {
    if (this.socket?.readyState !== WebSocket.OPEN) return;
    this.socket.send(encodePull(Date.now(), withFlags));
  }

  private connect(): void {
    this.events.onState("connecting");
    const socket = new WebSocket(this.url, kSubprotocol);
    socket.binaryType = "arraybuffer";
    this.socket = socket;
    this.lastMessageMs = Date.now();
    socket.onopen = () => {
      this.tries = 0;
      this.lastMessageMs = Date.now();
      this.events.onState("open");
    };
    socket.onclose = () => {
      this.retry(socket);
    };
    socket.onmessage = (event: MessageEvent<string | ArrayBuffer>) => {
      if (socket !== this.socket) return;
      this.lastMessageMs = Date.now();
      this.take(event.data);
    };
  }

  private take(data: string | ArrayBuffer): void {
    if (typeof data === "string") {
      const message = decodeText(data);
      if (message !== null) this.events.onText(message);
    } else {
      const message = decodeBinary(data);
      if (message !== null) this.events.onBinary(message);
    }
  }

  private retry(socket: WebSocket): void {
    if (socket !== this.socket) return;
    this.socket = null;
    this.events.onState("closed");
    window.clearTimeout(this.timer);
    this.timer = window.setTimeout(() => {
      this.connect();
    }, waitBeforeTry(this.tries));
    this.tries += 1;
  }

  private dropIfDead(): void {
    if (this.socket === null || Date.now() - this.lastMessageMs < kDeadAfterMs) return;
    const socket = this.socket;
    // A hung server may not answer the closing either: do not wait for it.
    this.retry(socket);
    socket.close();
  }
}
