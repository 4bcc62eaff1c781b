// What the page's buttons, keys and lines of text do, with frames that the test makes.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { after, before, test } from "node:test";
import type { Browser } from "playwright-core";
import {
  coloursAt,
  kDesktop,
  kPhone,
  startBrowser,
  waitForDraw,
  waitForFrame,
  waitForText,
} from "../support/browser.js";
import { column, imageSpot, inPage, kFront, lattice, placesOf } from "../support/in_page.js";
import { frameMessage, usualFields } from "../support/sample_stream.js";

let browser: Browser;
before(async () => {
  browser = await startBrowser();
});
after(async () => {
  await browser.close();
});

void test("pausing stops asking, steps go back and forth and fetch one frame at the end", async () => {
  await inPage(browser, kFront, kDesktop, async ({ page, server }) => {
    const message = (serial: number) =>
      frameMessage(usualFields(serial), [
        { echo: 0, row: 50, col: 60, counts: 1000 + serial, reflectivity: 1, flags: 0 },
      ]);
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
  await inPage(browser, "", kDesktop, async ({ page, server }) => {
    const messages = [1, 2].map((serial) =>
      frameMessage(usualFields(serial), [
        { echo: 0, row: 50, col: 60, counts: 1000 * serial, reflectivity: 1, flags: 0 },
      ]),
    );
    for (const message of messages) server.play(message);
    await waitForFrame(page, 2);
    await page.keyboard.press(",");
    await waitForFrame(page, 1);
    for (const kind of ["pcd", "ply", "las"]) {
      const [download] = await Promise.all([
        page.waitForEvent("download"),
        page.click(`[data-save=${kind}]`),
      ]);
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
    assert.deepEqual(
      [png.readUInt32BE(16), png.readUInt32BE(20)],
      [box.width, box.height].map(Math.round),
    );
  });
});

void test("a link shows the same view", async () => {
  await inPage(browser, "#colour=flags", kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    assert.equal(await page.inputValue("#colouring"), "flags");
    await page.selectOption("#echoes", "1");
    await page.locator("#range-high").fill("25");
    await page.keyboard.press("t");
    await page.waitForFunction(() => location.hash.includes("camera="));
    const before = await page.evaluate(() => window.lidarPage?.placeOnPage(96 * 288 + 40) ?? null);
    assert.ok(before !== null);
    const hash = await page.evaluate(() => location.hash);
    assert.match(hash, /^#colour=flags&echo=1&range=0,25&camera=/);
    await inPage(browser, hash, kDesktop, async ({ page: other, server: otherServer }) => {
      otherServer.play(frameMessage(usualFields(1), lattice()));
      await waitForFrame(other, 1);
      assert.equal(await other.inputValue("#echoes"), "1");
      assert.equal(await other.inputValue("#range-high"), "25");
      const there = await other.evaluate(
        () => window.lidarPage?.placeOnPage(96 * 288 + 40) ?? null,
      );
      // The link has the camera to the millimetre.
      assert.ok(there !== null && Math.hypot(there.x - before.x, there.y - before.y) < 0.1);
    });
  });
});

void test("an output mode without flags offers none and needs no plane of them", async () => {
  await inPage(browser, "", kDesktop, async ({ page, server }) => {
    const fields = { outputMode: 3, knownFlags: 0, carries: 1 << 5 };
    server.play(frameMessage({ ...usualFields(1), ...fields }, lattice()));
    server.play(frameMessage({ ...usualFields(2), ...fields, withFlags: false }, lattice()));
    await waitForFrame(page, 2);
    const disabled = await page
      .locator("#colouring option:disabled")
      .evaluateAll((all) => all.map((option) => (option as HTMLOptionElement).value));
    assert.deepEqual(disabled, ["reflectivity", "ground", "flags"]);
    // The first pull asks for flags, the second does not.
    assert.deepEqual(
      server.pulls.slice(0, 2).map((pull) => [pull.length, pull[0], pull[1]]),
      [
        [16, 1, 1],
        [16, 1, 0],
      ],
    );
  });
});

void test("losses are told apart, and silence with its beginning", async () => {
  await inPage(browser, "", kDesktop, async ({ page, server }) => {
    server.figures = {
      ...server.figures,
      beforeHost: 11,
      kernel: 22,
      ring: 33,
      incomplete: 44,
      missingBlocks: 55,
    };
    server.play(frameMessage({ ...usualFields(1), missingBlocks: 5 }, lattice()));
    await waitForFrame(page, 1);
    server.tellFigures();
    for (const [id, text] of Object.entries({
      "lost-before-host": "11",
      "lost-kernel": "22",
      "lost-ring": "33",
      incomplete: "44",
      "missing-blocks": "5 (55)",
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
  await inPage(browser, "#colour=height", kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    await server.goAway();
    await waitForText(page, "state", /^server not reached, trying again$/);
    // The next one has no calibration.
    assert.ok(await page.locator("#geometry").isHidden());
    server.defaultDirections = true;
    server.comeBack();
    // Another server counts from 1 again.
    server.play(frameMessage(usualFields(1), lattice()));
    server.play(frameMessage(usualFields(2), lattice()));
    await waitForFrame(page, 2);
    await waitForText(page, "state", /^(live|packets come, but no frame)$/);
    assert.equal(await page.inputValue("#colouring"), "height");
    assert.ok(await page.locator("#geometry").isVisible());
    assert.ok(server.connections >= 2);
  });
});

void test("a pinned pixel offers its story in the frame that is shown", async () => {
  await inPage(browser, "", kDesktop, async ({ page, server }) => {
    server.stories = true;
    await page.reload();
    const messages = [1, 2].map((serial) => frameMessage(usualFields(serial), lattice()));
    for (const message of messages) server.play(message);
    await waitForFrame(page, 2);
    await page.keyboard.press(",");
    await waitForFrame(page, 1);
    assert.ok(await page.locator("#story-a").isHidden());
    await page.keyboard.press("w");
    await waitForText(page, "notice", /^Pin a pixel for its story\.$/);
    for (const pixel of [
      { row: 50, col: 60 },
      { row: 200, col: 250 },
    ]) {
      const spot = await imageSpot(page, "range-image", pixel);
      await page.mouse.click(spot.x, spot.y);
    }
    assert.ok(await page.locator("#story-b").isVisible());
    await page.click("#story-a");
    const title = page.frameLocator("#story-page").locator("h1");
    assert.equal(await title.textContent(), "Story 1");
    assert.equal(await title.evaluate((h1) => getComputedStyle(h1).color), "rgb(1, 2, 3)");
    assert.equal(await page.textContent("#story-frame"), "Frame 1, id 1");
    const link = page.locator("#story-link");
    assert.equal(await link.getAttribute("href"), `/story/${"1".padStart(32, "0")}`);
    assert.equal(await link.getAttribute("rel"), "noopener");
    await page.click("#story-close");
    assert.ok(await page.locator("#story").isHidden());
    await page.keyboard.press("w");
    await title.getByText("Story 2").waitFor();
    assert.deepEqual(
      server.storiesAsked.map(({ query }) => query),
      ["?row=50&col=60", "?row=200&col=250"],
    );
    assert.ok(server.storiesAsked.every(({ body }) => body.equals(Buffer.from(messages[0]))));
  });
});

void test("why there is no story is told in a sentence", async () => {
  await inPage(browser, "", kDesktop, async ({ page, server, errors }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    const spot = await imageSpot(page, "range-image", { row: 50, col: 60 });
    await page.mouse.click(spot.x, spot.y);
    assert.ok(await page.locator("#story-a").isHidden(), "not offered");
    await page.keyboard.press("w");
    await waitForText(page, "notice", /^No stories: lidar_web runs without --story\.$/);

    server.stories = true;
    server.storyRefusal = "the capture holds no frame 1 of that time";
    await page.reload();
    server.play(frameMessage(usualFields(2), lattice()));
    await waitForFrame(page, 2);
    await page.mouse.click(spot.x, spot.y);
    await page.click("#story-a");
    await waitForText(page, "notice", /^No story: the capture holds no frame 1 of that time$/);
    assert.ok(await page.locator("#story").isHidden());
    assert.ok(await page.locator("#story-a").isEnabled());
    // The browser's own line about the status.
    assert.match(errors.splice(0).join(), /^Failed to load resource: [^,]* 404/);
  });
});

void test("keys do what the list under ? says", async () => {
  await inPage(browser, "", kDesktop, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    await page.keyboard.press("?");
    assert.ok(await page.locator("#help").isVisible());
    assert.equal(await page.locator("#keys dt").count(), 18);
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
    const turned = await spot();
    assert.ok(from !== null && turned !== null);
    assert.ok(Math.hypot(turned.x - from.x, turned.y - from.y) > 5);
    await page.keyboard.press("r");
    assert.deepEqual(await spot(), from);
  });
});

void test("light and dark follow the system until the switch says otherwise", async () => {
  await inPage(browser, "", { ...kDesktop, scheme: "light" }, async ({ page, context, server }) => {
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
  await inPage(browser, "", kPhone, async ({ page, server }) => {
    server.play(frameMessage(usualFields(1), lattice()));
    await waitForFrame(page, 1);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 390);
    for (const id of ["pause", "colouring", "range-image", "plot"]) {
      const box = await page.locator(`#${id}`).boundingBox();
      assert.ok(box !== null && box.width > 0 && box.x >= 0 && box.x + box.width <= 390, id);
    }
    const [lit] = await placesOf(page, lattice());
    await page.mouse.click(lit.x, lit.y);
    assert.equal(
      (await column(page, 2))[0].replace(" e1", ""),
      `${String(lit.one.row)}, ${String(lit.one.col)}`,
    );
  });
});

void test("every control has a name", async () => {
  await inPage(browser, "", kDesktop, async ({ page }) => {
    const nameless = await page.locator("button, input, select, canvas").evaluateAll((all) =>
      all
        .filter((element) => {
          const label = element.getAttribute("aria-label") ?? element.textContent;
          const labels =
            element instanceof HTMLInputElement || element instanceof HTMLSelectElement
              ? (element.labels?.length ?? 0)
              : 0;
          return label.trim() === "" && labels === 0 && element.closest("#legend") === null;
        })
        .map((element) => element.id),
    );
    assert.deepEqual(nameless, []);
  });
});
