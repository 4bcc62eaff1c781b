// The README's picture of the page: the simulated street, coloured by height, two points pinned.
//   node page_picture.mjs FILE      by scripts/make_page_picture.sh

import { setPriority } from "node:os";
import { join } from "node:path";
import type { Page } from "playwright-core";
import { kDesktop, newPage, startBrowser, waitForDraw, waitForText } from "../support/browser.js";
import { kAddress, Programs } from "../support/programs.js";

const kScene = "street";
/** Frames that the plot shows. */
const kFrames = 60;

async function clickPixel(page: Page, row: number, col: number): Promise<void> {
  const box = await page.locator("#range-image").boundingBox();
  if (box === null) throw new Error("no range image");
  await page.mouse.click(
    box.x + ((col + 0.5) / 288) * box.width,
    box.y + ((215.5 - row) / 216) * box.height,
  );
}

const file = process.argv[2];
const programs = new Programs();
// Drawing by software takes all that a small machine has: the node goes before.
setPriority(0, 10);
const browser = await startBrowser();
setPriority(0, 0);
try {
  programs.makeCalibration(kScene);
  await programs.startNode();
  programs.prefer("node");
  // The node's own words tell what was lost before the host.
  programs.startServer(["--node-log", join(programs.folder, "node.log")]);
  const { page } = await newPage(browser, kDesktop);
  await programs.waitForOutput("server", /lidar_web: http/);
  await page.goto(`${kAddress}#colour=height&size=2.5`);
  programs.startSensor(kScene);
  await page.waitForFunction((serial) => (window.lidarPage?.shownSerial() ?? 0) >= serial, kFrames);
  await clickPixel(page, 132, 145);
  await clickPixel(page, 80, 222);
  await page.mouse.move(640, 300);
  await waitForText(page, "state", /^live$/);
  await waitForDraw(page);
  await page.screenshot({ path: file });
} finally {
  await browser.close();
  await programs.end();
}
