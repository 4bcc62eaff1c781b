// The page: what the user does goes to settings, pins and frames; what they are goes to the views.

import { Address } from "./address.js";
import { viewPose, turnedPose, type ViewName } from "./camera_views.js";
import { all, byId, setText } from "./dom.js";
import {
  hasFlag,
  kCarriesReflectivity,
  kFlagBit,
  pointAt,
  type Directions,
  type Frame,
  type Vec3,
} from "./frame.js";
import { FrameFlow } from "./frame_flow.js";
import { healthOf } from "./health.js";
import { HealthPanel } from "./health_panel.js";
import { fillKeyList, type Action, listenToKeys } from "./keyboard.js";
import { showLegend } from "./legend.js";
import { pickPoint, project } from "./picking.js";
import { Notice } from "./notice.js";
import { PixelPanel, type Marked } from "./pixel_panel.js";
import { pinsAfterClick, type Pins } from "./pins.js";
import { infoOf, type PixelInfo } from "./pixel_info.js";
import { listenToImage, listenToPoints } from "./pointing.js";
import { imageEcho, RangeImages } from "./range_images.js";
import { fileName, kFileKinds, offerFile, pointFile, type FileKind } from "./saving.js";
import { PointScene } from "./scene.js";
import {
  kColourings,
  kEchoChoices,
  kPointSizes,
  settingsFromHash,
  type Settings,
} from "./settings.js";
import { SettingsPanel } from "./settings_panel.js";
import { groundHeight } from "./shown.js";
import { StoryPanel } from "./story.js";
import type { Hello } from "./stream.js";
import { isLight, nextTheme, onSystemTheme, styleColour } from "./theme.js";

const kHealthEveryMs = 200;
/** The grid follows the ground only over larger steps, metres: it must not tremble. */
const kGroundStep = 0.3;
const kGroundEveryFrames = 10;

export class App {
  private settings = settingsFromHash(location.hash);
  private directions: Directions | null = null;
  private ground = 0;
  private groundIsKnown = false;
  private framesUntilGround = 0;
  private hovered: number | null = null;
  private pins: Pins = [];
  private latencyMs: number | null = null;

  private readonly canvas = byId("points", HTMLCanvasElement);
  private readonly scene = new PointScene(this.canvas);
  private readonly images = new RangeImages(
    byId("range-image", HTMLCanvasElement),
    byId("reflectivity-image", HTMLCanvasElement),
  );
  private readonly pixelPanel = new PixelPanel();
  private readonly healthPanel = new HealthPanel();
  private readonly settingsPanel = new SettingsPanel((changed) => {
    this.change(changed);
  });
  private readonly help = byId("help", HTMLDialogElement);
  private readonly notice = new Notice();
  private readonly storyPanel = new StoryPanel(
    () => this.shownFrame(),
    (text) => {
      this.notice.tell(text);
    },
  );
  private readonly address = new Address(() => this.settings);
  private readonly flow: FrameFlow;

  constructor() {
    this.scene.onDrawn = () => {
      this.afterDraw();
    };
    this.scene.onMoved = () => {
      this.settings.camera = this.scene.pose();
      this.address.writeSoon();
    };
    this.listen();
    this.showSettings();
    if (this.settings.camera !== null) this.scene.setPose(this.settings.camera);
    else this.showView("reset");
    const scheme = location.protocol === "https:" ? "wss" : "ws";
    this.flow = new FrameFlow(`${scheme}://${location.host}/stream`, {
      onHello: (hello) => {
        this.showSource(hello);
      },
      onDirections: (directions) => {
        this.takeDirections(directions);
      },
      onShown: (frame) => {
        this.showFrame(frame);
      },
      onChange: () => {
        this.showHealth();
      },
    });
    window.setInterval(() => {
      this.showHealth();
    }, kHealthEveryMs);
  }

  /** Where a place is shown, pixels of the page; null where it has no point in view. */
  placeOnPage(place: number): { x: number; y: number } | null {
    const frame = this.flow.history.shown;
    const point =
      frame === null || this.directions === null ? null : pointAt(frame, this.directions, place);
    const at = point === null ? null : project(this.scene.matrix(), this.scene.size(), point);
    const { left, top } = this.canvas.getBoundingClientRect();
    return at === null ? null : { x: left + at.x, y: top + at.y };
  }

  valuesOf(place: number): PixelInfo | null {
    const frame = this.flow.history.shown;
    return frame === null ? null : infoOf(frame, this.directions, place);
  }

  /** Serial number of the shown frame; 0 before the first. */
  shownSerial(): number {
    return this.flow.history.shown?.serial ?? 0;
  }

  groundHeight(): number {
    return this.ground;
  }

  private get marked(): Marked {
    return { hovered: this.hovered, pins: this.pins };
  }

  private listen(): void {
    const events = {
      hover: (place: number | null) => {
        this.hovered = place;
        this.showPixels();
      },
      pin: (place: number) => {
        this.pins = pinsAfterClick(this.pins, place);
        this.showPixels();
      },
    };
    listenToPoints(this.canvas, (x, y, reach) => this.pick(x, y, reach), events);
    const echo = () =>
      this.flow.history.shown === null ? 0 : imageEcho(this.settings, this.flow.history.shown);
    listenToImage(byId("range-image", HTMLCanvasElement), echo, events);
    listenToImage(byId("reflectivity-image", HTMLCanvasElement), echo, events);
    listenToKeys((action) => {
      this.act(action);
    });
    onSystemTheme(() => {
      this.showSettings();
    });
    window.addEventListener("hashchange", () => {
      this.takeAddress();
    });
    const click = (id: string, action: Action) => {
      byId(id, HTMLButtonElement).addEventListener("click", () => {
        this.act(action);
      });
    };
    click("pause", { do: "pause" });
    click("step-back", { do: "step", by: -1 });
    click("step-forward", { do: "step", by: 1 });
    click("clear-pins", { do: "clear" });
    click("copy-link", { do: "link" });
    click("theme", { do: "theme" });
    click("help-open", { do: "help" });
    byId("help-close", HTMLButtonElement).addEventListener("click", () => {
      this.help.close();
    });
    for (const button of all("[data-view]", HTMLButtonElement)) {
      button.addEventListener("click", () => {
        this.showView(button.dataset.view as ViewName);
      });
    }
    for (const button of all("[data-save]", HTMLButtonElement)) {
      button.addEventListener("click", () => {
        void this.save(button.dataset.save ?? "");
      });
    }
    fillKeyList(byId("keys", HTMLElement));
  }

  private act(action: Action): void {
    switch (action.do) {
      case "pause":
        this.flow.togglePause();
        break;
      case "step":
        this.flow.step(action.by);
        break;
      case "view":
        this.showView(action.name);
        break;
      case "colour":
        this.change({ colouring: kColourings[action.index] });
        break;
      case "pick-echo": {
        const index = kEchoChoices.indexOf(this.settings.echoes);
        this.change({ echoes: kEchoChoices[(index + 1) % kEchoChoices.length] });
        break;
      }
      case "size": {
        const size = this.settings.pointSize + action.by;
        this.change({ pointSize: Math.min(Math.max(size, kPointSizes.low), kPointSizes.high) });
        break;
      }
      case "turn":
        this.scene.setPose(turnedPose(this.scene.pose(), action.around, action.up, action.zoom));
        break;
      case "grid":
        this.change({ grid: !this.settings.grid });
        break;
      case "clear":
        this.pins = [];
        this.showPixels();
        break;
      case "story":
        this.storyPanel.openLast();
        break;
      case "save":
        void this.save("png");
        break;
      case "link":
        void this.copyLink();
        break;
      case "theme":
        this.change({ theme: nextTheme(this.settings.theme) });
        break;
      case "help":
        this.help.showModal();
        break;
    }
  }

  private change(changed: Partial<Settings>): void {
    this.settings = { ...this.settings, ...changed };
    this.showSettings();
    this.address.writeSoon();
  }

  private showSettings(): void {
    const light = isLight(this.settings.theme);
    document.documentElement.dataset.theme = light ? "light" : "dark";
    byId("theme", HTMLButtonElement).textContent = `Theme: ${this.settings.theme}`;
    this.settingsPanel.show(this.settings);
    this.images.setTheme(light, styleColour("--no-return"));
    this.showColours();
    const frame = this.shownFrame();
    if (frame !== null) this.images.draw(frame, this.settings);
    this.showPixels();
  }

  /** What depends on settings, ground and output mode, but not on the frame's values. */
  private showColours(): void {
    const light = isLight(this.settings.theme);
    const offset: Vec3 = this.directions?.offset ?? [0, 0, 0];
    this.scene.setSettings(this.settings, offset, this.ground, light, {
      background: styleColour("--ground"),
      grid: styleColour("--grid"),
      ring: styleColour("--ring"),
      text: styleColour("--ring-text"),
      ruler: styleColour("--text"),
    });
    const known = this.shownFrame()?.knownFlags ?? 0;
    showLegend(byId("legend", HTMLElement), this.settings, this.ground, known, light);
  }

  /** The flow does not exist yet while the page is built. */
  private shownFrame(): Frame | null {
    return (this.flow as FrameFlow | undefined)?.history.shown ?? null;
  }

  private showView(name: ViewName): void {
    this.scene.setPose(viewPose(name, this.scene.aspect(), this.ground));
    // The first view is the page's own: it fits each window and needs no place in the address.
    if (name === "reset") {
      this.settings.camera = null;
      this.address.write();
    }
  }

  private takeDirections(directions: Directions): void {
    this.directions = directions;
    this.groundIsKnown = false;
    this.scene.setDirections(directions);
    const frame = this.shownFrame();
    if (frame !== null) this.showFrame(frame);
  }

  private showFrame(frame: Frame): void {
    this.scene.setFrame(frame);
    this.findGround(frame);
    const hasFlags = (frame.knownFlags & ~(1 << kFlagBit.ground)) !== 0;
    const hasGround = hasFlag(frame.knownFlags, kFlagBit.ground);
    this.settingsPanel.allow(hasFlag(frame.carries, kCarriesReflectivity), hasGround, hasFlags);
    this.showColours();
    this.images.draw(frame, this.settings);
    setText(
      byId("image-echo", HTMLElement),
      frame.echoes > 1 ? `of echo ${String(imageEcho(this.settings, frame))}` : "",
    );
    this.showPixels();
  }

  private findGround(frame: Frame): void {
    if (this.directions === null) return;
    this.framesUntilGround -= 1;
    if (this.groundIsKnown && this.framesUntilGround > 0) return;
    this.framesUntilGround = kGroundEveryFrames;
    const height = groundHeight(frame, this.directions);
    if (height === null || (this.groundIsKnown && Math.abs(height - this.ground) < kGroundStep))
      return;
    const isFirst = !this.groundIsKnown;
    this.ground = height;
    this.groundIsKnown = true;
    if (isFirst && this.settings.camera === null) this.showView("reset");
  }

  private afterDraw(): void {
    const frame = this.shownFrame();
    if (frame !== null && !this.flow.history.isPaused) {
      this.latencyMs = Date.now() - this.flow.clock.pageMs(frame.lastUs);
    }
    this.pixelPanel.showSceneMarks(
      frame,
      this.directions,
      this.marked,
      this.scene.matrix(),
      this.scene.size(),
    );
    (this.flow as FrameFlow | undefined)?.drawn();
  }

  private showPixels(): void {
    const frame = this.shownFrame();
    this.pixelPanel.showValues(frame, this.directions, this.marked);
    this.pixelPanel.showImageMarks(this.marked);
    this.storyPanel.showPins(this.pins);
    this.pixelPanel.showSceneMarks(
      frame,
      this.directions,
      this.marked,
      this.scene.matrix(),
      this.scene.size(),
    );
    if (frame !== null) this.pixelPanel.showPlot(this.flow.history, this.pins);
    const ends =
      frame === null || this.directions === null
        ? []
        : this.pins.map((pin) => this.pointOf(frame, pin));
    this.scene.setRuler(
      ends.length === 2 && ends[0] !== null && ends[1] !== null ? [ends[0], ends[1]] : null,
    );
  }

  private pointOf(frame: Frame, place: number): Vec3 | null {
    return this.directions === null ? null : pointAt(frame, this.directions, place);
  }

  private pick(x: number, y: number, reach: number): number | null {
    const frame = this.shownFrame();
    if (frame === null || this.directions === null) return null;
    const { settings, directions } = this;
    const input = {
      frame,
      directions,
      settings,
      matrix: this.scene.matrix(),
      size: this.scene.size(),
    };
    return pickPoint(input, x, y, reach);
  }

  private showHealth(): void {
    const flow = this.flow as FrameFlow | undefined;
    if (flow === undefined) return;
    const { history } = flow;
    const health = healthOf({
      nowMs: Date.now(),
      link: flow.linkState,
      isPaused: history.isPaused,
      figures: flow.figures,
      figuresAtMs: flow.figuresAtMs,
      askedAtMs: flow.askedAtMs,
      arrivalsMs: flow.arrivalsMs,
      newestTakenMs: flow.newestTakenMs,
      shownTakenMs: history.shown === null ? null : flow.clock.pageMs(history.shown.takenUs),
    });
    this.healthPanel.show(health, this.latencyMs, history.shown, flow.figures);
    const pause = byId("pause", HTMLButtonElement);
    pause.setAttribute("aria-pressed", String(history.isPaused));
    setText(pause, history.isPaused ? "Go on" : "Pause");
    const back = history.newer > 0 ? `, ${String(history.newer)} back` : "";
    const name =
      history.shown === null
        ? "no frame"
        : `frame ${String(history.shown.serial)}, id ${String(history.shown.id)}${back}`;
    setText(byId("frame-name", HTMLOutputElement), name);
  }

  private showSource(hello: Hello): void {
    byId("geometry", HTMLElement).hidden = !hello.default_directions;
    this.storyPanel.offer(hello.stories === true);
    const { source, directions, version } = hello;
    setText(
      byId("source", HTMLElement),
      `Shows ${source}. Directions: ${directions}. lidar_web ${version}.`,
    );
  }

  private async save(kind: string): Promise<void> {
    const frame = this.shownFrame();
    try {
      if (frame === null) throw new Error("no frame yet");
      const blob = kFileKinds.includes(kind as FileKind)
        ? await pointFile(frame, kind as FileKind)
        : await this.scene.picture();
      if (blob === null) throw new Error("the browser made no picture");
      offerFile(blob, fileName(frame, kind));
    } catch (error) {
      this.notice.tell(`Not saved: ${error instanceof Error ? error.message : String(error)}`);
    }
  }

  private async copyLink(): Promise<void> {
    // Also of the first view, which is another one in a window of another shape.
    this.settings.camera = this.scene.pose();
    this.address.write();
    try {
      await navigator.clipboard.writeText(location.href);
      this.notice.tell("The link is copied.");
    } catch {
      // Browsers give the clipboard only to pages of this machine or by https.
      this.notice.tell("Copy the link from the address line.");
    }
  }

  private takeAddress(): void {
    this.settings = settingsFromHash(location.hash);
    if (this.settings.camera !== null) this.scene.setPose(this.settings.camera);
    this.showSettings();
  }
}
