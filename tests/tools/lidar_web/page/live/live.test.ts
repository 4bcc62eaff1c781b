// The page before the real programs: simulated sensor, node, ring, server. In a network of its own
// (own_network.sh), since the node's port and ring are compiled in.

import assert from "node:assert/strict";
import { existsSync, readFileSync, rmSync } from "node:fs";
import { after, before, test } from "node:test";
import type { Browser, Page } from "playwright-core";
import { coloursAt, isOurs, kDesktop, kWaitMs, newPage, startBrowser, waitForText, type OpenPage } from "../support/browser.js";
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
  programs.startServer();
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
  return isOurs(error) && !/WebSocket connection to .* failed/.test(error) && !error.includes("ERR_CONNECTION_REFUSED");
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
  return (await page.locator(`#pixel-rows tr:nth-child(${String(row)}) td`).first().textContent()) ?? "";
}

/** Moves over the middle of a point's pixel in the range image and reads the table. */
async function hover(page: Page, point: CloudPoint): Promise<string[]> {
  const box = await page.locator("#range-image").boundingBox();
  assert.ok(box !== null);
  await page.mouse.move(box.x + ((point.col + 0.5) / 288) * box.width, box.y + ((215.5 - point.row) / 216) * box.height);
  return Promise.all([1, 2, 3, 4, 5, 6].map((row) => textOf(page, row)));
}

void test("a stopped stream: what the page shows is what lidar_view has read", async () => {
  const { page, context, errors } = await openLive("#grid=0&size=3");
  const pcd = await lastFrameOf(page);
  const points = readPcd(pcd);
  assert.ok(points.length > 20_000, `${String(points.length)} points`);

  // Values of pixels all over the frame.
  const some = points.filter((_, i) => i % 4999 === 0);
  for (const point of some) {
    const metres = Math.hypot(point.x, point.y, point.z).toFixed(3);
    const texts = await hover(page, point);
    assert.deepEqual(texts.slice(3), [point.x, point.y, point.z].map((value) => `${value.toFixed(3)} m`));
    assert.deepEqual(texts.slice(0, 3), [`${String(point.row)}, ${String(point.col)}`, `${metres} m`, String(point.intensity)]);
  }
  assert.ok(some.length > 4);

  // Every one of them is lit: something else than the ground.
  const spots = await page.evaluate(
    (places) => places.map((place) => window.lidarPage?.placeOnPage(place) ?? null),
    points.map(({ row, col }) => row * 288 + col),
  );
  const view = await page.locator("#points").boundingBox();
  assert.ok(view !== null);
  const inView = spots.filter((spot) => spot !== null).filter(({ x, y }) => x > view.x + 1 && x < view.x + view.width - 1 && y > view.y + 1 && y < view.y + view.height - 1);
  assert.ok(inView.length > 10_000);
  const sample = inView.filter((_, i) => i % 17 === 0);
  const colours = await coloursAt(context, await page.screenshot(), sample);
  const dark = colours.filter((colour) => Math.max(...colour) <= 26);
  assert.equal(dark.length, 0);

  // The files are lidar_view's, to the byte.
  const [download] = await Promise.all([page.waitForEvent("download"), page.click("[data-save=pcd]")]);
  assert.ok(readFileSync(await download.path()).equals(pcd));
  const [las] = await Promise.all([page.waitForEvent("download"), page.click("[data-save=las]")]);
  const bytes = readFileSync(await las.path());
  assert.equal(bytes.toString("latin1", 0, 4), "LASF");
  // The count of points stands at 107 of LAS 1.2.
  assert.equal(bytes.readUInt32LE(107), points.length);
  const [ply] = await Promise.all([page.waitForEvent("download"), page.click("[data-save=ply]")]);
  assert.match(readFileSync(await ply.path()).toString("latin1", 0, 300), new RegExp(`element vertex ${String(points.length)}\n`));
  assert.deepEqual(errors.filter(isOurs), []);
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
