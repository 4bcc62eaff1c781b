// The 3D view: camera, controls, points, grid. It is drawn when something has changed, never by
// itself.

import {
  BufferGeometry,
  Color,
  Float32BufferAttribute,
  LineBasicMaterial,
  LineSegments,
  Matrix4,
  PerspectiveCamera,
  Scene,
  WebGLRenderer,
} from "three";
import { OrbitControls } from "three/examples/jsm/controls/OrbitControls.js";
import { kFieldOfView } from "./camera_views.js";
import type { Directions, Frame, Vec3 } from "./frame.js";
import { GroundGrid } from "./ground_grid.js";
import type { Matrix, Size } from "./picking.js";
import { PointCloud } from "./point_cloud.js";
import type { CameraPose, Settings } from "./settings.js";

const kNear = 0.05;
const kFar = 1000;

export interface SceneColours {
  background: string;
  grid: string;
  ring: string;
  text: string;
  ruler: string;
}

export class PointScene {
  /** Called after each draw. */
  onDrawn: (() => void) | null = null;
  /** Called when the user has moved the camera. */
  onMoved: (() => void) | null = null;

  private readonly renderer: WebGLRenderer;
  private readonly scene = new Scene();
  private readonly camera = new PerspectiveCamera(kFieldOfView, 1, kNear, kFar);
  private readonly controls: OrbitControls;
  private readonly cloud = new PointCloud();
  private readonly grid = new GroundGrid();
  private readonly ruler: LineSegments<BufferGeometry, LineBasicMaterial>;
  private drawIsAsked = false;

  constructor(private readonly canvas: HTMLCanvasElement) {
    this.renderer = new WebGLRenderer({ canvas, antialias: true });
    this.camera.up.set(0, 0, 1);
    this.controls = new OrbitControls(this.camera, canvas);
    this.controls.enableDamping = false;
    this.controls.zoomToCursor = true;
    this.controls.maxDistance = 300;
    this.controls.addEventListener("change", () => {
      this.askForDraw();
      this.onMoved?.();
    });
    const ends = new BufferGeometry();
    ends.setAttribute("position", new Float32BufferAttribute(6, 3));
    this.ruler = new LineSegments(
      ends,
      new LineBasicMaterial({ depthTest: false, transparent: true }),
    );
    this.ruler.frustumCulled = false;
    this.ruler.visible = false;
    this.scene.add(this.grid.group, this.cloud.group, this.ruler);
    new ResizeObserver(() => {
      this.resize();
    }).observe(canvas);
    this.resize();
  }

  setDirections(directions: Directions): void {
    this.cloud.setDirections(directions);
    this.askForDraw();
  }

  setFrame(frame: Frame): void {
    this.cloud.setFrame(frame);
    this.askForDraw();
  }

  setSettings(
    settings: Settings,
    offset: Vec3,
    ground: number,
    light: boolean,
    colours: SceneColours,
  ): void {
    this.cloud.setSettings(settings, ground, light, this.renderer.getPixelRatio());
    this.grid.group.visible = settings.grid;
    this.grid.place(offset, ground);
    this.grid.setColours(colours);
    this.ruler.material.color.set(colours.ruler);
    this.scene.background = new Color(colours.background);
    this.askForDraw();
  }

  /** The line between two pinned points; null for none. */
  setRuler(ends: readonly [Vec3, Vec3] | null): void {
    this.ruler.visible = ends !== null;
    if (ends !== null) {
      const position = this.ruler.geometry.getAttribute("position");
      ends.forEach((end, i) => position.setXYZ(i, end[0], end[1], end[2]));
      position.needsUpdate = true;
    }
    this.askForDraw();
  }

  pose(): CameraPose {
    const { position } = this.camera;
    const { target } = this.controls;
    return {
      position: [position.x, position.y, position.z],
      target: [target.x, target.y, target.z],
    };
  }

  setPose(pose: CameraPose): void {
    this.camera.position.set(...pose.position);
    this.controls.target.set(...pose.target);
    this.controls.update();
    this.askForDraw();
  }

  aspect(): number {
    return this.camera.aspect;
  }

  size(): Size {
    return { width: this.canvas.clientWidth, height: this.canvas.clientHeight };
  }

  /** From places to the view, for picking and marks. */
  matrix(): Matrix {
    this.camera.updateMatrixWorld();
    return new Matrix4().multiplyMatrices(
      this.camera.projectionMatrix,
      this.camera.matrixWorldInverse,
    ).elements;
  }

  picture(): Promise<Blob | null> {
    this.draw();
    return new Promise((resolve) => {
      this.canvas.toBlob(resolve, "image/png");
    });
  }

  askForDraw(): void {
    if (this.drawIsAsked) return;
    this.drawIsAsked = true;
    requestAnimationFrame(() => {
      this.drawIsAsked = false;
      this.draw();
    });
  }

  private draw(): void {
    this.renderer.render(this.scene, this.camera);
    this.onDrawn?.();
  }

  private resize(): void {
    const { width, height } = this.size();
    if (width === 0 || height === 0) return;
    this.renderer.setPixelRatio(window.devicePixelRatio);
    this.renderer.setSize(width, height, false);
    this.camera.aspect = width / height;
    this.camera.updateProjectionMatrix();
    this.askForDraw();
  }
}
