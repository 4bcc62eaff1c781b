// A server that plays given frames to the page, inside the test: no socket, no other program.

import { readFileSync } from "node:fs";
import { join } from "node:path";
import type { Page, Route, WebSocketRoute } from "playwright-core";
import {
  directionsMessage,
  figuresMessage,
  helloMessage,
  kUsualFigures,
  type FiguresFields,
} from "./sample_stream.js";

const kAddress = "http://127.0.0.1:9/";
const kTypes: Record<string, string> = {
  "index.html": "text/html; charset=utf-8",
  "page.css": "text/css",
  "page.js": "text/javascript",
};
/** As the real server sends it. */
const kPolicy =
  "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data: blob:; frame-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
const kStoryPolicy =
  "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'; frame-ancestors 'self'; sandbox";

/** Folder of the built page. */
export function pageFolder(): string {
  return process.env.LIDAR_WEB_PAGE ?? "../tools/lidar_web_page";
}

export class PlayedServer {
  figures: FiguresFields = { ...kUsualFigures };
  /** Bytes of pulls, in the order of their coming. */
  readonly pulls: Buffer[] = [];
  /** Bodies of POST requests by file kind. */
  readonly posted: { kind: string; body: Buffer }[] = [];
  defaultDirections = false;
  /** Whether stories are told. */
  stories = false;
  /** Queries and bodies of requests for stories. */
  readonly storiesAsked: { query: string; body: Buffer }[] = [];
  /** Why no story is told, if none is. */
  storyRefusal = "";
  connections = 0;
  private socket: WebSocketRoute | null = null;
  private waiting: ArrayBuffer[] = [];
  private pullIsOpen = false;
  private isAway = false;

  constructor(private readonly page: Page) {}

  /** Makes the page's requests end here and opens it. */
  async open(hash = ""): Promise<void> {
    await this.page.route(`${kAddress}**`, async (route) => {
      const name = new URL(route.request().url()).pathname.slice(1) || "index.html";
      const file = /^frame\.(\w+)$/.exec(name);
      if (file !== null && route.request().method() === "POST") {
        const body = route.request().postDataBuffer() ?? Buffer.alloc(0);
        this.posted.push({ kind: file[1], body });
        await route.fulfill({ status: this.isAway ? 503 : 200, body: `a ${file[1]} file` });
      } else if (name.startsWith("story")) {
        await this.answerStory(route);
      } else if (name in kTypes) {
        const body = readFileSync(join(pageFolder(), name));
        await route.fulfill({
          body,
          headers: { "Content-Type": kTypes[name], "Content-Security-Policy": kPolicy },
        });
      } else {
        await route.fulfill({ status: 404, body: "not found" });
      }
    });
    await this.page.routeWebSocket(/\/stream$/, (socket) => {
      this.take(socket);
    });
    await this.page.goto(kAddress + hash);
  }

  /** The n-th story is kept under the number n. */
  private async answerStory(route: Route): Promise<void> {
    const request = route.request();
    const { pathname, search } = new URL(request.url());
    if (request.method() === "POST" && this.storyRefusal !== "") {
      await route.fulfill({ status: 404, body: `${this.storyRefusal}\n` });
    } else if (request.method() === "POST") {
      const body = request.postDataBuffer() ?? Buffer.alloc(0);
      this.storiesAsked.push({ query: search, body });
      const name = String(this.storiesAsked.length).padStart(32, "0");
      await route.fulfill({ status: 200, body: `/story/${name}\n` });
    } else {
      await route.fulfill({
        body: `<!DOCTYPE html><style>h1 { color: rgb(1, 2, 3) }</style><h1>Story ${String(Number(pathname.slice(7)))}</h1>`,
        headers: { "Content-Type": kTypes["index.html"], "Content-Security-Policy": kStoryPolicy },
      });
    }
  }

  /** Another frame; it goes out with the next pull. Frames not pulled go out one by one. */
  play(message: ArrayBuffer): void {
    this.waiting.push(message);
    this.answer();
  }

  tellFigures(): void {
    this.socket?.send(figuresMessage(this.figures));
  }

  /** Breaks the connection; tries to come back fail until `comeBack`. */
  async goAway(): Promise<void> {
    this.isAway = true;
    const { socket } = this;
    this.socket = null;
    await socket?.close({ code: 1001 });
  }

  comeBack(): void {
    this.isAway = false;
  }

  private take(socket: WebSocketRoute): void {
    if (this.isAway) {
      void socket.close({ code: 1001 });
      return;
    }
    this.connections += 1;
    this.socket = socket;
    this.pullIsOpen = false;
    socket.onMessage((message) => {
      this.pulls.push(Buffer.from(message as Buffer));
      this.pullIsOpen = true;
      this.answer();
    });
    socket.send(helloMessage(this.defaultDirections, this.stories));
    socket.send(Buffer.from(directionsMessage()));
    this.tellFigures();
  }

  private answer(): void {
    if (!this.pullIsOpen || this.socket === null) return;
    const message = this.waiting.shift();
    if (message === undefined) return;
    this.pullIsOpen = false;
    // The client's clock comes back in the answer.
    const pull = this.pulls.at(-1);
    if (pull !== undefined) new DataView(message).setFloat64(48, pull.readDoubleLE(8), true);
    this.socket.send(Buffer.from(message));
  }
}
