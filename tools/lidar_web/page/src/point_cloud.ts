// The points of the shown frame on the graphics card. The directions go there once; a frame is its
// planes as they came, five bytes a point.

import {
  BufferAttribute,
  BufferGeometry,
  DataTexture,
  DynamicDrawUsage,
  GLSL3,
  Group,
  NearestFilter,
  Points,
  RGBAFormat,
  ShaderMaterial,
  Vector2,
  Vector3,
} from "three";
import {
  kEchoCategories,
  kFlagCategories,
  kGroundCategories,
  kNoFlag,
  kRampEntries,
  makeRamp,
  shaded,
  type Rgb,
} from "./colours.js";
import { kPixels, type Directions, type Frame } from "./frame.js";
import { kFragmentShader, kShaderColouring, kVertexShader } from "./point_shader.js";
import { colourScale, echoIsShown, farLimit } from "./shown.js";
import { kMaxReflectivity, type Colouring, type Settings } from "./settings.js";

const kEchoes = 2;
const kPaletteEntries = kFlagCategories.length + 1;

/** Colours by class; the rest are none's. */
function paletteOf(colouring: Colouring): Rgb[] {
  switch (colouring) {
    case "echo":
      return kEchoCategories.map((entry) => entry.colour);
    case "ground":
      return kGroundCategories.map((entry) => entry.colour);
    default:
      return [kNoFlag, ...kFlagCategories].map((entry) => entry.colour);
  }
}

function makeMaterial(echo: number, ramp: DataTexture): ShaderMaterial {
  return new ShaderMaterial({
    glslVersion: GLSL3,
    vertexShader: kVertexShader,
    fragmentShader: kFragmentShader,
    uniforms: {
      unitMetres: { value: 0 },
      offset: { value: new Vector3() },
      rangeLimits: { value: new Vector2() },
      reflectivityLimits: { value: new Vector2(0, kMaxReflectivity) },
      scale: { value: new Vector2(0, 1) },
      pointSize: { value: 2 },
      colouring: { value: 0 },
      echo: { value: echo },
      ramp: { value: ramp },
      palette: { value: Array.from({ length: kPaletteEntries }, () => new Vector3()) },
    },
  });
}

function plane(array: Uint8Array | Uint16Array): BufferAttribute {
  return new BufferAttribute(array, 1).setUsage(DynamicDrawUsage);
}

export class PointCloud {
  readonly group = new Group();
  private readonly echoes: Points<BufferGeometry, ShaderMaterial>[] = [];
  private readonly ramp = new DataTexture(makeRamp(false), kRampEntries, 1, RGBAFormat);
  private readonly noFlags = new Uint16Array(kPixels);
  private shownEchoes = 0;

  constructor() {
    this.ramp.minFilter = NearestFilter;
    this.ramp.magFilter = NearestFilter;
    this.ramp.needsUpdate = true;
    for (let echo = 0; echo < kEchoes; echo += 1) {
      const geometry = new BufferGeometry();
      geometry.setAttribute("range", plane(new Uint16Array(kPixels)));
      geometry.setAttribute("reflectivity", plane(new Uint8Array(kPixels)));
      geometry.setAttribute("flags", plane(new Uint16Array(kPixels)));
      const points = new Points(geometry, makeMaterial(echo, this.ramp));
      // Its attributes hold directions, no places: what three would cull by means nothing.
      points.frustumCulled = false;
      points.visible = false;
      this.echoes.push(points);
      this.group.add(points);
    }
  }

  setDirections(directions: Directions): void {
    const position = new BufferAttribute(directions.unit, 3);
    for (const points of this.echoes) {
      points.geometry.setAttribute("position", position);
      (points.material.uniforms.offset.value as Vector3).fromArray(directions.offset);
    }
  }

  setFrame(frame: Frame): void {
    this.shownEchoes = frame.echoes;
    this.echoes.forEach((points, echo) => {
      if (echo >= frame.echoes) return;
      const of = <T extends Uint8Array | Uint16Array>(whole: T): T =>
        whole.subarray(echo * kPixels, (echo + 1) * kPixels) as T;
      this.replace(points, "range", of(frame.range));
      this.replace(points, "reflectivity", of(frame.reflectivity));
      this.replace(points, "flags", frame.flags === null ? this.noFlags : of(frame.flags));
      points.material.uniforms.unitMetres.value = frame.unitMetres;
    });
  }

  /** @param pixelRatio screen pixels a page pixel */
  setSettings(settings: Settings, ground: number, light: boolean, pixelRatio: number): void {
    const ramp = makeRamp(light);
    (this.ramp.image.data as Uint8Array).set(ramp);
    this.ramp.needsUpdate = true;
    const scale = colourScale(settings, ground);
    const palette = paletteOf(settings.colouring);
    this.echoes.forEach((points, echo) => {
      const { uniforms } = points.material;
      points.visible = echo < this.shownEchoes && echoIsShown(settings, echo);
      (uniforms.rangeLimits.value as Vector2).set(
        settings.range.low,
        Math.min(farLimit(settings), 1e6),
      );
      (uniforms.reflectivityLimits.value as Vector2).set(
        settings.reflectivity.low,
        settings.reflectivity.high,
      );
      (uniforms.scale.value as Vector2).set(scale.low, scale.high);
      uniforms.pointSize.value = settings.pointSize * pixelRatio;
      uniforms.colouring.value = kShaderColouring[settings.colouring];
      palette.forEach((colour, i) => {
        const [r, g, b] = shaded(colour, light);
        (uniforms.palette.value as Vector3[])[i].set(r / 255, g / 255, b / 255);
      });
    });
  }

  private replace(points: Points, name: string, array: Uint8Array | Uint16Array): void {
    const attribute = points.geometry.getAttribute(name) as BufferAttribute;
    attribute.array = array;
    attribute.needsUpdate = true;
  }
}
