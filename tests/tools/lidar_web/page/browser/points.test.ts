// What the page draws, with frames that the test makes: points and images, where and in which colour,
// and what is told of a pixel.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import type { Browser, Page } from "playwright-core";
import {
  coloursAt,
  kDesktop,
  startBrowser,
  waitForDraw,
  waitForFrame,
  type Colour,
} from "../support/browser.js";
import { column, imageSpot, inPage, kFront, lattice, placesOf } from "../support/in_page.js";
import { directionOf, frameMessage, usualFields, type Return } from "../support/sample_stream.js";

let browser: Browser;
before(async () => {
  browser = await startBrowser();
});
after(async () => {
  await browser.close();
});

// The ramp's anchors, and colours by class, as the legend shows them on a dark ground.
const kRamp: readonly (readonly [number, Colour])[] = [
  [0, [74, 84, 214]],
  [0.12, [38, 168, 235]],
  [0.28, [48, 214, 150]],
  [0.48, [188, 226, 62]],
  [0.72, [253, 170, 48]],
  [1, [236, 62, 46]],
];
const kEchoColours: readonly Colour[] = [
  [64, 168, 255],
  [255, 158, 44],
];
const kNotGround: Colour = [168, 176, 196];
const kGround: Colour = [96, 184, 76];

function rampColour(value: number, low: number, high: number): Colour {
  const share = Math.min(1, Math.max(0, (value - low) / (high - low)));
  const next = Math.max(
    1,
    kRamp.findIndex(([at]) => at >= share),
  );
  const [[from, a], [to, b]] = [kRamp[next - 1], kRamp[next]];
  const mixed = a.map((channel, i) => channel + ((b[i] - channel) * (share - from)) / (to - from));
  return [mixed[0], mixed[1], mixed[2]];
}

/** The most telling flag decides. */
function flagColour(flags: number): Colour {
  if ((flags & (1 << 4)) !== 0) return [255, 64, 255];
  if ((flags & (1 << 5)) !== 0) return [255, 128, 16];
  if ((flags & (1 << 7)) !== 0) return [32, 208, 240];
  if ((flags & (1 << 8)) !== 0) return [255, 72, 88];
  if ((flags & (1 << 11)) !== 0) return [150, 110, 255];
  if ((flags & (1 << 3)) !== 0) return [244, 228, 88];
  if ((flags & (1 << 6)) !== 0) return [96, 168, 76];
  return [136, 140, 152];
}

const kColourOf: Record<string, (one: Return, ground: number) => Colour> = {
  range: (one) => rampColour(one.counts * 0.004, 0, 40),
  reflectivity: (one) => rampColour(one.reflectivity, 0, 255),
  height: (one, ground) =>
    rampColour(directionOf(one.row, one.col)[2] * one.counts * 0.004, ground - 0.5, ground + 4.5),
  echo: (one) => kEchoColours[one.echo],
  ground: (one) => ((one.flags & (1 << 6)) !== 0 ? kGround : kNotGround),
  flags: (one) => flagColour(one.flags),
};

void test("known points are lit in the right colour in each colouring", async () => {
  const returns = lattice();
  await inPage(browser, kFront, kDesktop, async ({ page, context, server }) => {
    server.play(frameMessage(usualFields(1), returns));
    await waitForFrame(page, 1);
    const ground = await page.evaluate(() => window.lidarPage?.groundHeight() ?? NaN);
    for (const [colouring, colourOf] of Object.entries(kColourOf)) {
      await page.selectOption("#colouring", colouring);
      await waitForDraw(page);
      const lit = await placesOf(page, returns);
      assert.ok(lit.length > 60, `only ${String(lit.length)} points to look at`);
      const seen = await coloursAt(context, await page.screenshot(), lit);
      lit.forEach(({ one }, i) => {
        const expected = colourOf(one, ground);
        // The ramp has 256 entries; the steepest channel changes by 1.8 from one to the next, and
        // the card may round to the neighbouring entry.
        const most = Math.max(...expected.map((channel, c) => Math.abs(channel - seen[i][c])));
        assert.ok(
          most <= 4,
          `${colouring} ${JSON.stringify(one)}: ${String(seen[i])}, not ${String(expected)}`,
        );
      });
    }
  });
});

void test("limits and the choice of the echo hide points and show the others", async () => {
  const returns = lattice();
  const shown: Record<string, (one: Return) => boolean> = {
    "&range=12,22": (one) => one.counts * 0.004 > 12 && one.counts * 0.004 < 22,
    "&refl=50,120": (one) => one.reflectivity >= 50 && one.reflectivity <= 120,
    "&echo=1": (one) => one.echo === 1,
    "&echo=0": (one) => one.echo === 0,
  };
  await inPage(browser, kFront, kDesktop, async ({ page, context, server }) => {
    server.play(frameMessage(usualFields(1), returns));
    await waitForFrame(page, 1);
    const lit = await placesOf(page, returns);
    for (const [words, isShown] of Object.entries(shown)) {
      await page.evaluate((hash) => {
        location.hash = hash;
      }, kFront + words);
      await page.waitForTimeout(0);
      await waitForDraw(page);
      const seen = await coloursAt(context, await page.screenshot(), lit);
      lit.forEach(({ one }, i) => {
        const isLit = Math.max(...seen[i]) > 60; // the ground's brightest channel is 26
        assert.equal(isLit, isShown(one), `${words} ${JSON.stringify(one)}`);
      });
      assert.ok(lit.some(({ one }) => isShown(one)) && lit.some(({ one }) => !isShown(one)));
    }
  });
});

/** What the table should tell of a return. */
function textsOf(one: Return, flags: string): string[] {
  const metres = one.counts * 0.004;
  const [x, y, z] = directionOf(one.row, one.col).map(
    (value) => `${(value * metres).toFixed(3)} m`,
  );
  const name = `${String(one.row)}, ${String(one.col)}${one.echo === 1 ? " e1" : ""}`;
  return [name, `${metres.toFixed(3)} m`, String(one.reflectivity), x, y, z, flags];
}

void test("hovering an image or a point tells the pixel's values", async () => {
  const first: Return = {
    echo: 0,
    row: 100,
    col: 120,
    counts: 3333,
    reflectivity: 77,
    flags: (1 << 6) | (1 << 3),
  };
  const second: Return = {
    echo: 1,
    row: 60,
    col: 200,
    counts: 2001,
    reflectivity: 5,
    flags: 1 << 11,
  };
  await inPage(browser, kFront, kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), [first, second]));
    await waitForFrame(page, 1);
    for (const id of ["range-image", "reflectivity-image"]) {
      const spot = await imageSpot(page, id, first);
      await page.mouse.move(spot.x, spot.y);
      assert.deepEqual(await column(page, 1), textsOf(first, "high reflectivity, ground"));
      await page.mouse.move(spot.x + 40, spot.y);
      assert.equal((await column(page, 1))[1], "no return");
    }
    const [spot] = await placesOf(page, [second]);
    await page.mouse.move(spot.x + 2, spot.y + 2);
    await waitForDraw(page);
    assert.deepEqual(await column(page, 1), textsOf(second, "below level"));
    // It is marked in both images at its place.
    const marks = await page
      .locator(".image-marks .hovered")
      .evaluateAll((all) => all.map((mark) => parseFloat((mark as HTMLElement).style.left)));
    // In percent of the width, which the browser rounds to six digits.
    assert.deepEqual(
      marks.map((percent) => percent.toFixed(3)),
      Array(2).fill(((200.5 / 288) * 100).toFixed(3)),
    );
    await page.mouse.move(spot.x + 60, spot.y + 60);
    await waitForDraw(page);
    assert.equal((await column(page, 1))[1], "");
  });
});

void test("pinned pixels are marked in points and images, and their distance is told", async () => {
  const a: Return = { echo: 0, row: 107, col: 100, counts: 2500, reflectivity: 1, flags: 0 };
  const b: Return = { echo: 0, row: 107, col: 180, counts: 5000, reflectivity: 2, flags: 0 };
  const [from, to] = [a, b].map((one) =>
    directionOf(one.row, one.col).map((value) => value * one.counts * 0.004),
  );
  const metres = Math.hypot(...from.map((value, i) => value - to[i]));
  await inPage(browser, kFront, kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), [a, b]));
    await waitForFrame(page, 1);
    const [spot] = await placesOf(page, [a]);
    await page.mouse.click(spot.x, spot.y);
    const inImage = await imageSpot(page, "reflectivity-image", b);
    await page.mouse.click(inImage.x, inImage.y);
    await waitForDraw(page);
    assert.deepEqual(await column(page, 2), textsOf(a, "none"));
    assert.deepEqual(await column(page, 3), textsOf(b, "none"));
    assert.equal(await page.textContent("#distance"), `A to B: ${metres.toFixed(3)} m`);
    assert.equal(await page.locator(".image-marks .pin-b:visible").count(), 2);
    const mark = await page.locator("#marks .pin-a").boundingBox();
    assert.ok(mark !== null);
    assert.ok(Math.hypot(mark.x + 8 - spot.x, mark.y + 8 - spot.y) < 1.5);
    await page.keyboard.press("c");
    assert.equal(
      await page.locator(".pin-a:visible, .pin-b:visible").and(page.locator(".mark")).count(),
      0,
    );
    assert.equal((await column(page, 2))[0], "");
  });
});

/** Pixels of the plot that have the colour of pin A, in columns of the plot. */
async function plottedColumns(page: Page): Promise<number[]> {
  return page.evaluate(() => {
    const plot = document.querySelector("#plot");
    if (!(plot instanceof HTMLCanvasElement)) return [];
    const image = plot.getContext("2d")?.getImageData(0, 0, plot.width, plot.height);
    const columns = new Set<number>();
    for (let i = 0; image !== undefined && i < image.data.length; i += 4) {
      const [r, g, b] = image.data.slice(i, i + 3);
      // #ff5fd2, and no grey of the frame.
      if (r > 200 && g < 130 && b > 150) columns.add((i / 4) % plot.width);
    }
    return [...columns].sort((x, y) => x - y);
  });
}

void test("a pin's range is plotted over the frames before, without those that lack it", async () => {
  await inPage(browser, kFront, kDesktop, async ({ page, server }) => {
    const one: Return = { echo: 0, row: 107, col: 100, counts: 2500, reflectivity: 1, flags: 0 };
    for (let serial = 1; serial <= 40; serial += 1) {
      const isThere = serial <= 10 || serial > 20;
      server.play(
        frameMessage(usualFields(serial), isThere ? [{ ...one, counts: 2500 + serial }] : []),
      );
    }
    await waitForFrame(page, 40);
    assert.equal((await plottedColumns(page)).length, 0);
    const spot = await imageSpot(page, "range-image", one);
    await page.mouse.click(spot.x, spot.y);
    const columns = await plottedColumns(page);
    assert.ok(columns.length > 0);
    const gaps = columns.slice(1).map((x, i) => x - columns[i]);
    const step = await page.evaluate(
      () => ((document.querySelector("#plot")?.clientWidth ?? 0) - 58) / 99,
    );
    // One gap, over the ten frames without a return; points are two pixels wide.
    const wide = gaps.filter((gap) => gap > 4);
    assert.equal(wide.length, 1);
    assert.ok(Math.abs(wide[0] - 11 * step) < 4, `gap ${String(wide[0])}, step ${String(step)}`);
  });
});
