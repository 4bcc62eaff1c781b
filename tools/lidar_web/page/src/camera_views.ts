// Where the camera stands in each of its named views. x ahead, y to the left, z up, metres.

import type { Vec3 } from "./frame.js";
import type { CameraPose } from "./settings.js";

export const kViewNames = ["reset", "top", "front", "side"] as const;
export type ViewName = (typeof kViewNames)[number];

/** Degrees, upright. */
export const kFieldOfView = 50;
/** Views of a width below this share of their height stand farther off. */
const kNarrow = 1.2;
/** How far ahead of the sensor the middle of the scene is. */
const kMiddle = 14;
// Straight down a camera has no upward direction; this share of the height tilts it to x ahead.
const kTilt = 1e-4;

/**
 * @param aspect width by height of the view: a narrow one needs more distance
 * @param ground z of the ground
 */
export function viewPose(name: ViewName, aspect: number, ground: number): CameraPose {
  const back = Math.max(1, kNarrow / aspect);
  const target: Vec3 = [kMiddle, 0, ground + 1];
  switch (name) {
    case "top": {
      const height = 38 * back;
      return {
        position: [kMiddle - height * kTilt, 0, ground + height],
        target: [kMiddle, 0, ground],
      };
    }
    case "front":
      // From the sensor's place on: what the sensor sees.
      return { position: [-1.5 * back, 0, 0.5], target: [kMiddle, 0, ground + 1.2] };
    case "side":
      return { position: [kMiddle, -26 * back, ground + 3], target };
    case "reset":
      return {
        position: [-7.5 * back, -6 * back, ground + 8 * back],
        target: [kMiddle - 3, 0, ground + 0.5],
      };
  }
}

/** The pose turned around its target; radians, and the distance times `zoom`. */
export function turnedPose(pose: CameraPose, around: number, up: number, zoom: number): CameraPose {
  const [dx, dy, dz] = pose.position.map((value, i) => value - pose.target[i]);
  const distance = Math.hypot(dx, dy, dz) * zoom;
  const azimuth = Math.atan2(dy, dx) + around;
  const steepest = Math.PI / 2 - kTilt;
  const elevation = Math.min(
    Math.max(Math.atan2(dz, Math.hypot(dx, dy)) + up, -steepest),
    steepest,
  );
  const flat = distance * Math.cos(elevation);
  return {
    position: [
      pose.target[0] + flat * Math.cos(azimuth),
      pose.target[1] + flat * Math.sin(azimuth),
      pose.target[2] + distance * Math.sin(elevation),
    ],
    target: pose.target,
  };
}
