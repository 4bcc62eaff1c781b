// Pages with a played server, and what tests ask of them.

import assert from "node:assert/strict";
import type { Browser, Page } from "playwright-core";
import { isOurs, newPage, type Look, type OpenPage } from "./browser.js";
import { PlayedServer } from "./played_server.js";
import { kCols, kPixels, type Return } from "./sample_stream.js";

export interface Opened extends OpenPage {
  server: PlayedServer;
}

/** Runs `check` in a page of its own and wants no word on the console. */
export async function inPage(
  browser: Browser,
  hash: string,
  look: Look,
  check: (opened: Opened) => Promise<void>,
): Promise<void> {
  const opened = await newPage(browser, look);
  const server = new PlayedServer(opened.page);
  const figures = setInterval(() => {
    server.tellFigures();
  }, 500);
  try {
    await server.open(hash);
    await check({ ...opened, server });
    assert.deepEqual(opened.errors.filter(isOurs), []);
  } finally {
    clearInterval(figures);
    await opened.context.close();
  }
}

function placeOf(one: { echo: number; row: number; col: number }): number {
  return one.echo * kPixels + one.row * kCols + one.col;
}

const kFlagSets = [
  0,
  1 << 3,
  1 << 4,
  1 << 5,
  1 << 6,
  1 << 7,
  1 << 8,
  1 << 11,
  (1 << 4) | (1 << 6),
  0b111,
];

/** Returns far enough apart to be told apart on the page, of all ranges, values and flags. */
export function lattice(): Return[] {
  const returns: Return[] = [];
  for (let row = 15; row < 216; row += 27) {
    for (let col = 14; col < kCols; col += 26) {
      const i = returns.length;
      returns.push({
        echo: i % 3 === 2 ? 1 : 0,
        row,
        col,
        counts: 1500 + ((i * 977) % 7500),
        reflectivity: (i * 37) % 256,
        flags: kFlagSets[i % kFlagSets.length],
      });
    }
  }
  return returns;
}

export interface Lit {
  one: Return;
  x: number;
  y: number;
}

/** Where the page says its points are, without those under a button or near another point. */
export async function placesOf(page: Page, returns: readonly Return[]): Promise<Lit[]> {
  const spots = await page.evaluate((places) => {
    // The legend lets clicks through, so it is not what the page says is on top.
    const legend = document.querySelector("#legend")?.getBoundingClientRect();
    return places.map((place) => {
      const spot = window.lidarPage?.placeOnPage(place) ?? null;
      if (spot === null || legend === undefined) return null;
      if (spot.x < legend.right + 5 && spot.y > legend.top - 5) return null;
      return document.elementFromPoint(spot.x, spot.y)?.id === "points" ? spot : null;
    });
  }, returns.map(placeOf));
  const found = spots.flatMap((spot, i) => (spot === null ? [] : [{ one: returns[i], ...spot }]));
  return found.filter((lit) =>
    found.every((other) => other === lit || Math.hypot(other.x - lit.x, other.y - lit.y) > 9),
  );
}

// The front view shows all; without the grid nothing but points is drawn.
export const kFront = "#grid=0&size=7&camera=-2,0,0,10,0,0";

/** The texts of a column of the table: 1 hovered, 2 and 3 the pins. */
export async function column(page: Page, index: number): Promise<string[]> {
  return page.locator(`#pixel-rows tr td:nth-of-type(${String(index)})`).allTextContents();
}

/** Middle of a pixel in an image, in pixels of the page. */
export async function imageSpot(
  page: Page,
  id: string,
  one: { row: number; col: number },
): Promise<{ x: number; y: number }> {
  const box = await page.locator(`#${id}`).boundingBox();
  assert.ok(box !== null);
  return {
    x: box.x + ((one.col + 0.5) / 288) * box.width,
    y: box.y + ((215 - one.row + 0.5) / 216) * box.height,
  };
}
