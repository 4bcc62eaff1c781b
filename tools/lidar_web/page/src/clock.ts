// How far the server's clock is ahead of the page's.

import { clockAheadMs, type Transfer } from "./stream.js";

const kKept = 20;

interface Sample {
  aheadMs: number;
  onTheWayMs: number;
}

/** The answer that was on its way for the shortest time tells best. */
export class ServerClock {
  private samples: Sample[] = [];

  /** @param nowMs the page's clock when the answer had come */
  take(transfer: Transfer, nowMs: number): void {
    const onTheWayMs = nowMs - transfer.askedMs - (transfer.sentUs - transfer.pulledUs) / 1000;
    this.samples.push({ aheadMs: clockAheadMs(transfer, nowMs), onTheWayMs });
    if (this.samples.length > kKept) this.samples.shift();
  }

  /** For another server. */
  forget(): void {
    this.samples = [];
  }

  /** 0 before the first answer. */
  get aheadMs(): number {
    let best: Sample | null = null;
    for (const sample of this.samples) {
      if (best === null || sample.onTheWayMs < best.onTheWayMs) best = sample;
    }
    return best === null ? 0 : best.aheadMs;
  }

  /** The page's clock, milliseconds, at a time of the server's in microseconds. */
  pageMs(serverUs: number): number {
    return serverUs / 1000 - this.aheadMs;
  }
}
