// The story of a pinned pixel in the frame that is shown: what the node did with it. The server
// tells it from a capture, as a page of its own.

import { byId, setText } from "./dom.js";
import { pixelAt, type Frame } from "./frame.js";
import { kPinNames, type Pins } from "./pins.js";

const kStoryPath = /^\/story\/[0-9a-f]{32}$/;

/** Path of the story's page. Throws with the server's reason when it tells none. */
export async function storyOf(frame: Frame, place: number): Promise<string> {
  const { row, col } = pixelAt(place);
  const answer = await fetch(`story?row=${String(row)}&col=${String(col)}`, {
    method: "POST",
    body: frame.message,
  });
  const text = (await answer.text()).trim();
  if (!answer.ok) throw new Error(text || `status ${String(answer.status)}`);
  if (!kStoryPath.test(text)) throw new Error("the server's answer is no story");
  return text;
}

/** The pin's buttons, and the story that is open. */
export class StoryPanel {
  private readonly dialog = byId("story", HTMLDialogElement);
  private readonly buttons = kPinNames.map((name) =>
    byId(`story-${name.toLowerCase()}`, HTMLButtonElement),
  );
  private offered = false;
  private isWaiting = false;
  private pins: Pins = [];

  constructor(
    private readonly shownFrame: () => Frame | null,
    private readonly tell: (text: string) => void,
  ) {
    this.buttons.forEach((button, i) => {
      button.addEventListener("click", () => {
        void this.open(i);
      });
    });
    byId("story-close", HTMLButtonElement).addEventListener("click", () => {
      this.dialog.close();
    });
    this.dialog.addEventListener("close", () => {
      byId("story-page", HTMLIFrameElement).removeAttribute("src");
    });
  }

  /** Whether the server tells stories. */
  offer(offered: boolean): void {
    this.offered = offered;
    this.showButtons();
  }

  showPins(pins: Pins): void {
    this.pins = pins;
    this.showButtons();
  }

  /** That of the pin set last. */
  openLast(): void {
    if (!this.offered) this.tell("No stories: lidar_web runs without --story.");
    else if (this.pins.length === 0) this.tell("Pin a pixel for its story.");
    else void this.open(this.pins.length - 1);
  }

  private showButtons(): void {
    this.buttons.forEach((button, i) => {
      button.hidden = !this.offered || i >= this.pins.length;
      button.disabled = this.isWaiting;
    });
  }

  private async open(pin: number): Promise<void> {
    const frame = this.shownFrame();
    if (frame === null || this.isWaiting) return;
    this.isWaiting = true;
    this.showButtons();
    try {
      this.show(await storyOf(frame, this.pins[pin]), frame);
    } catch (error) {
      this.tell(`No story: ${error instanceof Error ? error.message : String(error)}`);
    } finally {
      this.isWaiting = false;
      this.showButtons();
    }
  }

  private show(path: string, frame: Frame): void {
    setText(
      byId("story-frame", HTMLElement),
      `Frame ${String(frame.serial)}, id ${String(frame.id)}`,
    );
    byId("story-link", HTMLAnchorElement).href = path;
    byId("story-page", HTMLIFrameElement).src = path;
    if (!this.dialog.open) this.dialog.showModal();
  }
}
