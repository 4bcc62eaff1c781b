// Debian's Chromium with the page in it.

import { chromium, type Browser, type BrowserContext, type Page } from "playwright-core";
import type { App } from "page/app.js";

declare global {
  interface Window {
    lidarPage?: App;
  }
}

/** A wait for anything: the machine may be busy, and one core draws a few frames a second. */
export const kWaitMs = 30_000;

export async function startBrowser(): Promise<Browser> {
  return chromium.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: [
      "--no-sandbox",
      "--use-gl=angle",
      "--use-angle=swiftshader",
      "--enable-unsafe-swiftshader",
      "--disable-quic",
      "--no-first-run",
      "--disable-background-networking",
      "--disable-component-update",
      "--disable-sync",
    ],
  });
}

export interface Look {
  width: number;
  height: number;
  scheme: "dark" | "light";
}

export const kDesktop: Look = { width: 1280, height: 720, scheme: "dark" };
export const kPhone: Look = { width: 390, height: 844, scheme: "dark" };

export interface OpenPage {
  context: BrowserContext;
  page: Page;
  /** What the browser has written to the console as an error, and exceptions. */
  errors: string[];
}

/** An empty page that collects errors. */
export async function newPage(browser: Browser, look: Look): Promise<OpenPage> {
  const context = await browser.newContext({
    viewport: { width: look.width, height: look.height },
    colorScheme: look.scheme,
    acceptDownloads: true,
  });
  context.setDefaultTimeout(kWaitMs);
  const page = await context.newPage();
  const errors: string[] = [];
  page.on("console", (message) => {
    if (message.type() === "error" || message.type() === "warning") errors.push(message.text());
  });
  page.on("pageerror", (error) => errors.push(String(error)));
  return { context, page, errors };
}

/** Chromium warns that reading pixels back is slow; only tests and saving a picture do it. */
export function isOurs(error: string): boolean {
  return (
    !error.includes("GPU stall due to ReadPixels") &&
    !error.includes("Multiple readback operations")
  );
}

/** Waits until the frame of this serial number is shown and drawn. */
export async function waitForFrame(page: Page, serial: number): Promise<void> {
  await page.waitForFunction((wanted) => window.lidarPage?.shownSerial() === wanted, serial, {
    timeout: kWaitMs,
  });
  await waitForDraw(page);
}

/** Two pictures later everything that was asked for is drawn. */
export async function waitForDraw(page: Page): Promise<void> {
  await page.evaluate(
    () =>
      new Promise<void>((resolve) => {
        requestAnimationFrame(() => {
          requestAnimationFrame(() => {
            resolve();
          });
        });
      }),
  );
}

/** Waits until the element's text is as wanted; the error tells what it was. */
export async function waitForText(page: Page, id: string, wanted: RegExp): Promise<string> {
  const element = page.locator(`#${id}`);
  const deadline = Date.now() + kWaitMs;
  let text = "";
  while (Date.now() < deadline) {
    text = (await element.textContent()) ?? "";
    if (wanted.test(text)) return text;
    await page.waitForTimeout(50);
  }
  throw new Error(`#${id} is "${text}", not ${String(wanted)}`);
}

export interface Spot {
  x: number;
  y: number;
}

export type Colour = readonly [number, number, number];

/** Colours of a picture (PNG) at these places, read by another page of the browser. */
export async function coloursAt(
  context: BrowserContext,
  png: Buffer,
  spots: readonly Spot[],
): Promise<Colour[]> {
  const page = await context.newPage();
  try {
    return await page.evaluate(
      async ({ base64, places }) => {
        const bytes = Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0));
        const image = await createImageBitmap(new Blob([bytes], { type: "image/png" }));
        const canvas = new OffscreenCanvas(image.width, image.height);
        const drawing = canvas.getContext("2d");
        if (drawing === null) throw new Error("no canvas");
        drawing.drawImage(image, 0, 0);
        return places.map(({ x, y }): [number, number, number] => {
          const { data } = drawing.getImageData(Math.floor(x), Math.floor(y), 1, 1);
          return [data[0], data[1], data[2]];
        });
      },
      { base64: png.toString("base64"), places: [...spots] },
    );
  } finally {
    await page.close();
  }
}
