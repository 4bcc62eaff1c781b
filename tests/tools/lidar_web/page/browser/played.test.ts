// The page in a browser, with frames that the test makes: what is drawn where and in which colour,
// what is told of a pixel, and what the buttons do.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { after, before, test } from "node:test";
import type { Browser, Page } from "playwright-core";
import {
  coloursAt,
  isOurs,
  kDesktop,
  kPhone,
  newPage,
  startBrowser,
  waitForDraw,
  waitForFrame,
  waitForText,
  type Colour,
  type Look,
  type OpenPage,
} from "../support/browser.js";
import { PlayedServer } from "../support/played_server.js";
import { directionOf, frameMessage, kCols, kPixels, usualFields, type Return } from "../support/sample_stream.js";

let browser: Browser;
before(async () => { browser = await startBrowser(); });
after(async () => { await browser.close(); });

interface Opened extends OpenPage {
  server: PlayedServer;
}

/** Runs `check` in a page of its own and wants no word on the console. */
async function inPage(hash: string, look: Look, check: (opened: Opened) => Promise<void>): Promise<void> {
  const opened = await newPage(browser, look);
  const server = new PlayedServer(opened.page);
  const figures = setInterval(() => { server.tellFigures(); }, 500);
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

const kFlagSets = [0, 1 << 3, 1 << 4, 1 << 5, 1 << 6, 1 << 7, 1 << 8, 1 << 11, (1 << 4) | (1 << 6), 0b111];

/** Returns far enough apart to be told apart on the page, of all ranges, values and flags. */
function lattice(): Return[] {
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

// The ramp's anchors, and colours by class, as the legend shows them on a dark ground.
const kRamp: readonly (readonly [number, Colour])[] = [
  [0, [74, 84, 214]],
  [0.12, [38, 168, 235]],
  [0.28, [48, 214, 150]],
  [0.48, [188, 226, 62]],
  [0.72, [253, 170, 48]],
  [1, [236, 62, 46]],
];
const kEchoColours: readonly Colour[] = [[64, 168, 255], [255, 158, 44]];
const kNotGround: Colour = [168, 176, 196];
const kGround: Colour = [96, 184, 76];

function rampColour(value: number, low: number, high: number): Colour {
  const share = Math.min(1, Math.max(0, (value - low) / (high - low)));
  const next = Math.max(1, kRamp.findIndex(([at]) => at >= share));
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

interface Lit {
  one: Return;
  x: number;
  y: number;
}

/** Where the page says its points are, without those under a button or near another point. */
async function placesOf(page: Page, returns: readonly Return[]): Promise<Lit[]> {
  const spots = await page.evaluate(
    (places) => {
      // The legend lets clicks through, so it is not what the page says is on top.
      const legend = document.querySelector("#legend")?.getBoundingClientRect();
      return places.map((place) => {
        const spot = window.lidarPage?.placeOnPage(place) ?? null;
        if (spot === null || legend === undefined) return null;
        if (spot.x < legend.right + 5 && spot.y > legend.top - 5) return null;
        return document.elementFromPoint(spot.x, spot.y)?.id === "points" ? spot : null;
      });
    },
    returns.map(placeOf),
  );
  const found = spots.flatMap((spot, i) => (spot === null ? [] : [{ one: returns[i], ...spot }]));
  return found.filter((lit) => found.every((other) => other === lit || Math.hypot(other.x - lit.x, other.y - lit.y) > 9));
}

// The front view shows all; without the grid nothing but points is drawn.
const kFront = "#grid=0&size=7&camera=-2,0,0,10,0,0";

void test("known points are lit in the right colour in each colouring", async () => {
  const returns = lattice();
  await inPage(kFront, kDesktop, async ({ page, context, server }) => {
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
        assert.ok(most <= 4, `${colouring} ${JSON.stringify(one)}: ${String(seen[i])}, not ${String(expected)}`);
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
  await inPage(kFront, kDesktop, async ({ page, context, server }) => {
    server.play(frameMessage(usualFields(1), returns));
    await waitForFrame(page, 1);
    const lit = await placesOf(page, returns);
    for (const [words, isShown] of Object.entries(shown)) {
      await page.evaluate((hash) => { location.hash = hash; }, kFront + words);
      await page.waitForTimeout(0);
      await waitForDraw(page);
      const seen = await coloursAt(context, await page.screenshot(), lit);
      lit.forEach(({ one }, i) => {
        const isLit = Math.max(...seen[i]) > 60;  // the ground's brightest channel is 26
        assert.equal(isLit, isShown(one), `${words} ${JSON.stringify(one)}`);
      });
      assert.ok(lit.some(({ one }) => isShown(one)) && lit.some(({ one }) => !isShown(one)));
    }
  });
});

/** The texts of a column of the table: 1 hovered, 2 and 3 the pins. */
async function column(page: Page, index: number): Promise<string[]> {
  return page.locator(`#pixel-rows tr td:nth-of-type(${String(index)})`).allTextContents();
}

/** What the table should tell of a return. */
function textsOf(one: Return, flags: string): string[] {
  const metres = one.counts * 0.004;
  const [x, y, z] = directionOf(one.row, one.col).map((value) => `${(value * metres).toFixed(3)} m`);
  const name = `${String(one.row)}, ${String(one.col)}${one.echo === 1 ? " e1" : ""}`;
  return [name, `${metres.toFixed(3)} m`, String(one.reflectivity), x, y, z, flags];
}

/** Middle of a pixel in an image, in pixels of the page. */
async function imageSpot(page: Page, id: string, one: { row: number; col: number }): Promise<{ x: number; y: number }> {
  const box = await page.locator(`#${id}`).boundingBox();
  assert.ok(box !== null);
  return {
    x: box.x + ((one.col + 0.5) / 288) * box.width,
    y: box.y + ((215 - one.row + 0.5) / 216) * box.height,
  };
}

void test("hovering an image or a point tells the pixel's values", async () => {
  const first: Return = { echo: 0, row: 100, col: 120, counts: 3333, reflectivity: 77, flags: (1 << 6) | (1 << 3) };
  const second: Return = { echo: 1, row: 60, col: 200, counts: 2001, reflectivity: 5, flags: 1 << 11 };
  await inPage(kFront, kDesktop, async ({ page, server }) => {
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
    const marks = await page.locator(".image-marks .hovered").evaluateAll((all) => all.map((mark) => parseFloat((mark as HTMLElement).style.left)));
    // In percent of the width, which the browser rounds to six digits.
    assert.deepEqual(marks.map((percent) => percent.toFixed(3)), Array(2).fill(((200.5 / 288) * 100).toFixed(3)));
    await page.mouse.move(spot.x + 60, spot.y + 60);
    await waitForDraw(page);
    assert.equal((await column(page, 1))[1], "");
  });
});

void test("pinned pixels are marked in points and images, and their distance is told", async () => {
  const a: Return = { echo: 0, row: 107, col: 100, counts: 2500, reflectivity: 1, flags: 0 };
  const b: Return = { echo: 0, row: 107, col: 180, counts: 5000, reflectivity: 2, flags: 0 };
  const [from, to] = [a, b].map((one) => directionOf(one.row, one.col).map((value) => value * one.counts * 0.004));
  const metres = Math.hypot(...from.map((value, i) => value - to[i]));
  await inPage(kFront, kDesktop, async ({ page, server }) => {
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
    assert.equal(await page.locator(".pin-a:visible, .pin-b:visible").and(page.locator(".mark")).count(), 0);
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
  await inPage(kFront, kDesktop, async ({ page, server }) => {
    const one: Return = { echo: 0, row: 107, col: 100, counts: 2500, reflectivity: 1, flags: 0 };
    for (let serial = 1; serial <= 40; serial += 1) {
      const isThere = serial <= 10 || serial > 20;
      server.play(frameMessage(usualFields(serial), isThere ? [{ ...one, counts: 2500 + serial }] : []));
    }
    await waitForFrame(page, 40);
    assert.equal((await plottedColumns(page)).length, 0);
    const spot = await imageSpot(page, "range-image", one);
    await page.mouse.click(spot.x, spot.y);
    const columns = await plottedColumns(page);
    assert.ok(columns.length > 0);
    const gaps = columns.slice(1).map((x, i) => x - columns[i]);
    const step = await page.evaluate(() => ((document.querySelector("#plot")?.clientWidth ?? 0) - 58) / 99);
    // One gap, over the ten frames without a return; points are two pixels wide.
    const wide = gaps.filter((gap) => gap > 4);
    assert.equal(wide.length, 1);
    assert.ok(Math.abs(wide[0] - 11 * step) < 4, `gap ${String(wide[0])}, step ${String(step)}`);
  });
});

void test("pausing stops asking, steps go back and forth and fetch one frame at the end", async () => {
  await inPage(kFront, kDesktop, async ({ page, server }) => {
    const message = (serial: number) =>
      frameMessage(usualFields(serial), [{ echo: 0, row: 50, col: 60, counts: 1000 + serial, reflectivity: 1, flags: 0 }]);
    for (const serial of [1, 2, 3]) server.play(message(serial));
    await waitForFrame(page, 3);
    const spot = await imageSpot(page, "range-image", { row: 50, col: 60 });
    await page.mouse.move(spot.x, spot.y);
    await page.click("#pause");
    await waitForText(page, "pause", /^Go on$/);
    // The pull that was on its way is answered; its frame waits.
    server.play(message(4));
    const pulls = server.pulls.length;
    await waitForText(page, "frame-name", /^frame 3, id 3, 1 back$/);
    await page.keyboard.press(",");
    await waitForFrame(page, 2);
    await page.mouse.move(spot.x, spot.y);
    assert.equal((await column(page, 1))[1], "4.008 m");
    assert.equal(await page.textContent("#frame-name"), "frame 2, id 2, 2 back");
    await page.click("#step-forward");
    await page.click("#step-forward");
    await waitForFrame(page, 4);
    assert.equal(server.pulls.length, pulls);
    await page.click("#step-forward");
    server.play(message(5));
    await waitForFrame(page, 5);
    assert.equal(server.pulls.length, pulls + 1);
    assert.equal(await page.textContent("#state"), "paused");
    await page.click("#pause");
    server.play(message(6));
    await waitForFrame(page, 6);
  });
});

void test("files are made of the frame that is shown, the picture is the view", async () => {
  await inPage("", kDesktop, async ({ page, server }) => {
    const messages = [1, 2].map((serial) =>
      frameMessage(usualFields(serial), [{ echo: 0, row: 50, col: 60, counts: 1000 * serial, reflectivity: 1, flags: 0 }]));
    for (const message of messages) server.play(message);
    await waitForFrame(page, 2);
    await page.keyboard.press(",");
    await waitForFrame(page, 1);
    for (const kind of ["pcd", "ply", "las"]) {
      const [download] = await Promise.all([page.waitForEvent("download"), page.click(`[data-save=${kind}]`)]);
      assert.equal(download.suggestedFilename(), `frame_1_id1.${kind}`);
      assert.equal(readFileSync(await download.path(), "utf8"), `a ${kind} file`);
      const posted = server.posted.at(-1);
      assert.equal(posted?.kind, kind);
      assert.ok(posted.body.equals(Buffer.from(messages[0])));
    }
    const [picture] = await Promise.all([page.waitForEvent("download"), page.keyboard.press("p")]);
    const png = readFileSync(await picture.path());
    const box = await page.locator("#points").boundingBox();
    assert.ok(box !== null);
    // Width and height stand at 16 of a PNG.
    assert.deepEqual([png.readUInt32BE(16), png.readUInt32BE(20)], [box.width, box.height].map(Math.round));
  });
});

void test("a link shows the same view", async () => {
  await inPage("#colour=flags", kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    assert.equal(await page.inputValue("#colouring"), "flags");
    await page.selectOption("#echoes", "1");
    await page.locator("#range-high").fill("25");
    await page.keyboard.press("t");
    await page.waitForFunction(() => location.hash.includes("camera="));
    const before = await page.evaluate(() => window.lidarPage?.placeOnPage(100 * 288 + 100) ?? null);
    const hash = await page.evaluate(() => location.hash);
    assert.match(hash, /^#colour=flags&echo=1&range=0,25&camera=/);
    await inPage(hash, kDesktop, async ({ page: other, server: otherServer }) => {
      otherServer.play(frameMessage(usualFields(1), lattice()));
      await waitForFrame(other, 1);
      assert.equal(await other.inputValue("#echoes"), "1");
      assert.equal(await other.inputValue("#range-high"), "25");
      assert.deepEqual(await other.evaluate(() => window.lidarPage?.placeOnPage(100 * 288 + 100) ?? null), before);
    });
  });
});

void test("an output mode without flags offers none and needs no plane of them", async () => {
  await inPage("", kDesktop, async ({ page, server }) => {
    const fields = { outputMode: 3, knownFlags: 0, carries: 1 << 5 };
    server.play(frameMessage({ ...usualFields(1), ...fields }, lattice()));
    server.play(frameMessage({ ...usualFields(2), ...fields, withFlags: false }, lattice()));
    await waitForFrame(page, 2);
    const disabled = await page.locator("#colouring option:disabled").evaluateAll((all) => all.map((option) => (option as HTMLOptionElement).value));
    assert.deepEqual(disabled, ["reflectivity", "ground", "flags"]);
    // The first pull asks for flags, the second does not.
    assert.deepEqual(server.pulls.slice(0, 2).map((pull) => [pull.length, pull[0], pull[1]]), [[16, 1, 1], [16, 1, 0]]);
  });
});

void test("losses are told apart, and silence with its beginning", async () => {
  await inPage("", kDesktop, async ({ page, server }) => {
    server.figures = { ...server.figures, beforeHost: 11, kernel: 22, ring: 33, incomplete: 44, missingBlocks: 55 };
    server.play(frameMessage({ ...usualFields(1), missingBlocks: 5 }, lattice()));
    await waitForFrame(page, 1);
    server.tellFigures();
    for (const [id, text] of Object.entries({
      "lost-before-host": "11", "lost-kernel": "22", "lost-ring": "33", incomplete: "44", "missing-blocks": "5 (55)",
    })) {
      await waitForText(page, id, new RegExp(`^${text.replace(/[()]/g, "\\$&")}$`));
    }
    server.figures = { ...server.figures, silentS: 5 };
    await waitForText(page, "state", /^node silent since \d\d:\d\d:\d\d \(5\.\d s\)$/);
    server.figures = { ...server.figures, silentS: null, sourceOk: false };
    await waitForText(page, "state", /^no source: ring \/sample \(does not exist\)$/);
    server.figures = { ...server.figures, beforeHost: null, kernel: null };
    await waitForText(page, "lost-kernel", /^–$/);
  });
});

void test("the page comes back when the server does, and keeps its settings", async () => {
  await inPage("#colour=height", kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    await server.goAway();
    await waitForText(page, "state", /^server not reached, trying again$/);
    server.comeBack();
    // Another server counts from 1 again.
    server.play(frameMessage(usualFields(1), lattice()));
    server.play(frameMessage(usualFields(2), lattice()));
    await waitForFrame(page, 2);
    await waitForText(page, "state", /^(live|packets come, but no frame)$/);
    assert.equal(await page.inputValue("#colouring"), "height");
    assert.ok(server.connections >= 2);
  });
});

void test("keys do what the list under ? says", async () => {
  await inPage("", kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    await page.keyboard.press("?");
    assert.ok(await page.locator("#help").isVisible());
    assert.equal(await page.locator("#keys dt").count(), 17);
    await page.keyboard.press("Escape");
    assert.ok(await page.locator("#help").isHidden());
    await page.keyboard.press("3");
    assert.equal(await page.inputValue("#colouring"), "height");
    await page.keyboard.press("e");
    assert.equal(await page.inputValue("#echoes"), "0");
    await page.keyboard.press("]");
    assert.equal(await page.inputValue("#point-size"), "2.5");
    await page.keyboard.press("g");
    assert.ok(!(await page.isChecked("#grid")));
    const spot = () => page.evaluate(() => window.lidarPage?.placeOnPage(96 * 288 + 40) ?? null);
    const from = await spot();
    await page.keyboard.press("ArrowLeft");
    assert.notDeepEqual(await spot(), from);
    await page.keyboard.press("r");
    assert.deepEqual(await spot(), from);
  });
});

void test("light and dark follow the system until the switch says otherwise", async () => {
  await inPage("", { ...kDesktop, scheme: "light" }, async ({ page, context, server }) => {
    server.play(frameMessage(usualFields(1), []));
    await waitForFrame(page, 1);
    const background = async () => {
      await waitForDraw(page);
      return (await coloursAt(context, await page.screenshot(), [{ x: 600, y: 60 }]))[0];
    };
    // The ground's #f3f5f8 and #10141a.
    assert.deepEqual(await background(), [243, 245, 248]);
    await page.emulateMedia({ colorScheme: "dark" });
    assert.deepEqual(await background(), [16, 20, 26]);
    await page.click("#theme");
    assert.equal(await page.textContent("#theme"), "Theme: light");
    assert.deepEqual(await background(), [243, 245, 248]);
  });
});

void test("on a phone nothing is wider than the page, and a tap pins", async () => {
  await inPage("", kPhone, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 390);
    for (const id of ["pause", "colouring", "range-image", "plot"]) {
      const box = await page.locator(`#${id}`).boundingBox();
      assert.ok(box !== null && box.width > 0 && box.x >= 0 && box.x + box.width <= 390, id);
    }
    const [lit] = await placesOf(page, lattice());
    await page.mouse.click(lit.x, lit.y);
    assert.equal((await column(page, 2))[0].replace(" e1", ""), `${String(lit.one.row)}, ${String(lit.one.col)}`);
  });
});

void test("every control has a name", async () => {
  await inPage("", kDesktop, async ({ page }) => {
    const nameless = await page.locator("button, input, select, canvas").evaluateAll((all) =>
      all
        .filter((element) => {
          const label = element.getAttribute("aria-label") ?? element.textContent ?? "";
          const labels = element instanceof HTMLInputElement || element instanceof HTMLSelectElement ? (element.labels?.length ?? 0) : 0;
          return label.trim() === "" && labels === 0 && element.closest("#legend") === null;
        })
        .map((element) => element.id),
    );
    assert.deepEqual(nameless, []);
  });
});
