// The page before the real programs: simulated sensor, node, ring, server. In a network of its own
// (own_network.sh), since the node's port and ring are compiled in.

import assert from "node:assert/strict";
import { existsSync, readFileSync, rmSync } from "node:fs";
import { after, before, test } from "node:test";
import type { Browser, Page } from "playwright-core";
import {
  coloursAt,
  isOurs,
  kDesktop,
  kWaitMs,
  newPage,
  startBrowser,
  waitForText,
  type OpenPage,
  type Spot,
} from "../support/browser.js";
import { readPcd, type CloudPoint } from "../support/pcd.js";
import { kAddress, Programs } from "../support/programs.js";

const kRing = "/dev/shm/kerul_lidar_udp_shm";
const kScene = "street";

let browser: Browser;
let programs: Programs;
before(async () => {
  browser = await startBrowser();
  programs = new Programs();
  programs.makeCalibration(kScene);
  await programs.startNode();
  await programs.startCapture();
  programs.startServer(["--story", programs.captures]);
  await programs.waitForOutput("server", /lidar_web: http/);
});
after(async () => {
  await browser.close();
  await programs.end();
});

async function openLive(hash = ""): Promise<OpenPage> {
  const opened = await newPage(browser, kDesktop);
  await opened.page.goto(kAddress + hash);
  return opened;
}

function serialShown(page: Page): Promise<number> {
  return page.evaluate(() => window.lidarPage?.shownSerial() ?? 0);
}

/** A break of the connection is the browser's own error message, and the only one to be. */
function isNoBreak(error: string): boolean {
  return (
    isOurs(error) &&
    !/WebSocket connection to .* failed/.test(error) &&
    !error.includes("ERR_CONNECTION_REFUSED")
  );
}

/** A refused story is told by the browser as well. */
function isNoRefusal(error: string): boolean {
  return isOurs(error) && !/Failed to load resource: .* 404/.test(error);
}

/** Waits for frames beyond what is shown now. */
async function waitForMore(page: Page): Promise<void> {
  const shown = await serialShown(page);
  await page.waitForFunction(
    (before) => {
      const now = window.lidarPage?.shownSerial() ?? 0;
      return now !== 0 && now !== before;
    },
    shown,
    { timeout: kWaitMs },
  );
  await waitForText(page, "state", /^live$/);
}

/** Streams a few frames until the sensor ends by itself; gives the last, as lidar_view has it. */
async function lastFrameOf(page: Page): Promise<Buffer> {
  programs.startViewer("last.pcd");
  programs.startSensor(kScene, ["--frames", "6"]);
  await programs.ended("sensor");
  await waitForText(page, "state", /^node silent since \d\d:\d\d:\d\d/);
  return programs.stopViewer("last.pcd");
}

async function textOf(page: Page, row: number): Promise<string> {
  return (
    (await page
      .locator(`#pixel-rows tr:nth-child(${String(row)}) td`)
      .first()
      .textContent()) ?? ""
  );
}

/** Moves over the middle of a point's pixel in the range image and reads the table. */
async function hover(page: Page, point: CloudPoint): Promise<string[]> {
  const box = await page.locator("#range-image").boundingBox();
  assert.ok(box !== null);
  await page.mouse.move(
    box.x + ((point.col + 0.5) / 288) * box.width,
    box.y + ((215.5 - point.row) / 216) * box.height,
  );
  return Promise.all([1, 2, 3, 4, 5, 6].map((row) => textOf(page, row)));
}

/** "12.345 m" against what the file has, which is rounded to single precision before. */
function assertMetres(text: string, expected: number): void {
  assert.match(text, /^-?\d+\.\d\d\d m$/);
  assert.ok(Math.abs(parseFloat(text) - expected) < 0.00051, `${text}, not ${String(expected)}`);
}

/** The table tells of pixels all over the frame what lidar_view has read. */
async function checkValues(page: Page, points: readonly CloudPoint[]): Promise<void> {
  const some = points.filter((_, i) => i % 4999 === 0);
  for (const point of some) {
    const [pixel, range, reflectivity, x, y, z] = await hover(page, point);
    assert.equal(pixel, `${String(point.row)}, ${String(point.col)}`);
    assert.equal(reflectivity, String(point.intensity));
    assertMetres(range, Math.hypot(point.x, point.y, point.z));
    assertMetres(x, point.x);
    assertMetres(y, point.y);
    assertMetres(z, point.z);
  }
  assert.ok(some.length > 4);
}

/** Where the points' pixels are in the view, those at its edge left out. */
async function placesInView(page: Page, points: readonly CloudPoint[]): Promise<Spot[]> {
  const spots = await page.evaluate(
    (places) => places.map((place) => window.lidarPage?.placeOnPage(place) ?? null),
    points.map(({ row, col }) => row * 288 + col),
  );
  const view = await page.locator("#points").boundingBox();
  assert.ok(view !== null);
  const isInside = (at: number, from: number, length: number) =>
    at > from + 1 && at < from + length - 1;
  return spots
    .filter((spot) => spot !== null)
    .filter(({ x, y }) => isInside(x, view.x, view.width) && isInside(y, view.y, view.height));
}

/** Pins the point's pixel and asks for its story; null when the capture has another frame. */
async function storyOf(page: Page, point: CloudPoint): Promise<string | null> {
  await hover(page, point);
  await page.mouse.down();
  await page.mouse.up();
  await page.click("#story-a");
  const answer = page.locator("#story[open], #notice:not([hidden])").first();
  await answer.waitFor();
  const isTold = await page.locator("#story").isVisible();
  let text: string | null = null;
  if (isTold) {
    const story = page.frameLocator("#story-page");
    await story.locator("h1").waitFor();
    text = await story.locator("body").textContent();
    await page.click("#story-close");
  } else {
    await waitForText(page, "notice", /the capture does not hold this frame/);
  }
  await page.keyboard.press("c");
  return text;
}

/** The kernel may drop packets of the node's that the capture got: then of a later frame. */
async function checkStory(page: Page, pcd: Buffer): Promise<void> {
  for (let i = 0; i < 5; i += 1) {
    const points = readPcd(i === 0 ? pcd : await lastFrameOf(page));
    const point = points[Math.floor(points.length / 2)];
    const story = await storyOf(page, point);
    if (story === null) continue;
    const range = Math.round(Math.hypot(point.x, point.y, point.z) / 0.004);
    assert.ok(story.includes(`The story of pixel ${String(point.row)},${String(point.col)}`));
    assert.ok(story.includes(`as ${String(range)} units of 4 mm`), story);
    return;
  }
  assert.fail("no story of five frames");
}

async function savedFile(page: Page, kind: string): Promise<Buffer> {
  const [download] = await Promise.all([
    page.waitForEvent("download"),
    page.click(`[data-save=${kind}]`),
  ]);
  return readFileSync(await download.path());
}

void test("a stopped stream: what the page shows is what lidar_view has read", async () => {
  const { page, context, errors } = await openLive("#grid=0&size=3");
  const pcd = await lastFrameOf(page);
  const points = readPcd(pcd);
  assert.ok(points.length > 20_000, `${String(points.length)} points`);
  await checkValues(page, points);

  const inView = await placesInView(page, points);
  assert.ok(inView.length > 10_000);
  const sample = inView.filter((_, i) => i % 17 === 0);
  const colours = await coloursAt(context, await page.screenshot(), sample);
  // The ground's brightest channel is 26.
  assert.equal(colours.filter((colour) => Math.max(...colour) <= 26).length, 0);

  // The PCD is lidar_view's, to the byte.
  assert.ok((await savedFile(page, "pcd")).equals(pcd));
  const las = await savedFile(page, "las");
  assert.equal(las.toString("latin1", 0, 4), "LASF");
  // The count of points stands at 107 of LAS 1.2.
  assert.equal(las.readUInt32LE(107), points.length);
  const ply = (await savedFile(page, "ply")).toString("latin1", 0, 300);
  assert.ok(ply.includes(`element vertex ${String(points.length)}\n`), ply);

  await checkStory(page, pcd);
  assert.deepEqual(errors.filter(isNoRefusal), []);
  await context.close();
});

void test("frames come again after node, ring and server were lost, one after the other", async () => {
  const { page, context, errors } = await openLive();
  programs.startSensor(kScene);
  await waitForMore(page);

  await programs.kill("node");
  await waitForText(page, "state", /^node silent since/);
  await programs.startNode();
  await waitForMore(page);

  rmSync(kRing);
  // The node notices and makes another. What it writes into the old one until then still comes, so
  // frames beyond the first prove something.
  await programs.waitFor(() => existsSync(kRing), "another ring");
  for (let i = 0; i < 5; i += 1) await waitForMore(page);

  await programs.kill("server");
  await waitForText(page, "state", /^server not reached, trying again$/);
  programs.startServer();
  await waitForMore(page);

  assert.deepEqual(errors.filter(isNoBreak), []);
  await context.close();
});
