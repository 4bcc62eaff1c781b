import assert from "node:assert/strict";
import { test } from "node:test";
import { kViewNames, turnedPose, viewPose } from "page/camera_views.js";
import type { CameraPose } from "page/settings.js";

function distance(pose: CameraPose): number {
  return Math.hypot(...pose.position.map((value, i) => value - pose.target[i]));
}

void test("from above the camera looks down, with ahead at the top of the page", () => {
  const { position, target } = viewPose("top", 1.6, -1.5);
  assert.equal(target[2], -1.5);
  assert.ok(position[2] > 20);
  assert.equal(position[1], target[1]);
  // Hardly behind its target: enough to know what is up, too little to be seen.
  assert.ok(position[0] < target[0] && target[0] - position[0] < 0.01 * position[2]);
});

void test("from the front the camera looks along x, from the side along y", () => {
  const front = viewPose("front", 1.6, 0);
  assert.ok(front.position[0] < 0 && front.target[0] > 0);
  assert.equal(front.position[1], 0);
  const side = viewPose("side", 1.6, 0);
  assert.ok(side.position[1] < -10);
  assert.equal(side.position[0], side.target[0]);
});

void test("a narrow page stands farther off", () => {
  for (const name of kViewNames) {
    if (name === "front") continue;
    assert.ok(distance(viewPose(name, 0.6, 0)) > 1.5 * distance(viewPose(name, 1.2, 0)), name);
  }
});

void test("turning keeps target and distance", () => {
  const pose = viewPose("reset", 1.6, -1);
  const turned = turnedPose(pose, 0.3, 0.1, 1);
  assert.deepEqual(turned.target, pose.target);
  assert.ok(Math.abs(distance(turned) - distance(pose)) < 1e-9);
  assert.ok(
    Math.hypot(turned.position[0] - pose.position[0], turned.position[1] - pose.position[1]) > 0.5,
  );
  assert.ok(turned.position[2] > pose.position[2]);
});

void test("turning a quarter around goes from behind to the side", () => {
  const turned = turnedPose({ position: [-10, 0, 0], target: [0, 0, 0] }, Math.PI / 2, 0, 2);
  // From x = -10 a quarter to the left of the z axis is y = -10, and twice as far.
  assert.ok(Math.abs(turned.position[0]) < 1e-9 && Math.abs(turned.position[1] + 20) < 1e-9);
});

void test("turning up ends above the target and does not go over it", () => {
  const turned = turnedPose({ position: [-10, 0, 1], target: [0, 0, 0] }, 0, 10, 1);
  assert.ok(turned.position[0] < 0 && turned.position[2] > 10);
});
