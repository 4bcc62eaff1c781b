// Grid on the ground and rings of equal distance from the sensor, with their metres.

import {
  BufferGeometry,
  CanvasTexture,
  Float32BufferAttribute,
  Group,
  LineBasicMaterial,
  LineSegments,
  Sprite,
  SpriteMaterial,
  SRGBColorSpace,
} from "three";

export const kRingMetres = [5, 10, 15, 20, 30, 40, 50, 60] as const;
const kRingSegments = 180;
const kGridStep = 5;
const kGridBehind = 10;
const kGridAhead = 60;
const kGridSide = 40;

/** Two ends a line, x y z each; z is 0. */
export function ringLines(radius: number): number[] {
  const lines: number[] = [];
  for (let i = 0; i < kRingSegments; i += 1) {
    for (const end of [i, i + 1]) {
      const angle = (2 * Math.PI * end) / kRingSegments;
      lines.push(radius * Math.cos(angle), radius * Math.sin(angle), 0);
    }
  }
  return lines;
}

export function gridLines(): number[] {
  const lines: number[] = [];
  for (let x = -kGridBehind; x <= kGridAhead; x += kGridStep) {
    lines.push(x, -kGridSide, 0, x, kGridSide, 0);
  }
  for (let y = -kGridSide; y <= kGridSide; y += kGridStep) {
    lines.push(-kGridBehind, y, 0, kGridAhead, y, 0);
  }
  return lines;
}

export interface GridColours {
  grid: string;
  ring: string;
  text: string;
}

function linesOf(places: number[]): LineSegments<BufferGeometry, LineBasicMaterial> {
  const geometry = new BufferGeometry();
  geometry.setAttribute("position", new Float32BufferAttribute(places, 3));
  return new LineSegments(geometry, new LineBasicMaterial({ transparent: true }));
}

/** A text that always faces the camera and keeps its size on the page. */
function makeLabel(text: string): { sprite: Sprite; paint: (colour: string) => void } {
  const canvas = document.createElement("canvas");
  canvas.width = 128;
  canvas.height = 48;
  const texture = new CanvasTexture(canvas);
  texture.colorSpace = SRGBColorSpace;
  const sprite = new Sprite(
    new SpriteMaterial({
      map: texture,
      sizeAttenuation: false,
      depthTest: false,
      transparent: true,
    }),
  );
  sprite.scale.set(0.064, 0.024, 1);
  const paint = (colour: string) => {
    const context = canvas.getContext("2d");
    if (context === null) return;
    context.clearRect(0, 0, canvas.width, canvas.height);
    context.font = "600 34px system-ui, sans-serif";
    context.textAlign = "center";
    context.textBaseline = "middle";
    context.fillStyle = colour;
    context.fillText(text, canvas.width / 2, canvas.height / 2);
    texture.needsUpdate = true;
  };
  return { sprite, paint };
}

export class GroundGrid {
  readonly group = new Group();
  private readonly grid = linesOf(gridLines());
  private readonly rings = linesOf(kRingMetres.flatMap(ringLines));
  private textColour = "";
  private readonly labels = kRingMetres.map((radius) => makeLabel(`${String(radius)} m`));

  constructor() {
    this.group.add(this.grid, this.rings);
    // A little beside the axis, where the points of what is straight ahead do not hide it.
    const angle = -0.06;
    this.labels.forEach(({ sprite }, i) => {
      sprite.position.set(kRingMetres[i] * Math.cos(angle), kRingMetres[i] * Math.sin(angle), 0);
      this.group.add(sprite);
    });
  }

  setColours(colours: GridColours): void {
    this.grid.material.color.set(colours.grid);
    this.rings.material.color.set(colours.ring);
    // Called with each frame, and painting is slow.
    if (colours.text === this.textColour) return;
    this.textColour = colours.text;
    for (const label of this.labels) label.paint(colours.text);
  }

  /** x and y stay the sensor's; `offset` is where it stands on the carrier. */
  place(offset: readonly [number, number, number], groundHeight: number): void {
    this.group.position.set(offset[0], offset[1], groundHeight);
  }
}
