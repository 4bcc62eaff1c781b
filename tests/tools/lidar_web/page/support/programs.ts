// The real programs: simulated sensor, node, server. Each can be killed and started again.

import { execFileSync, spawn, type ChildProcess } from "node:child_process";
import {
  closeSync,
  mkdirSync,
  mkdtempSync,
  openSync,
  readdirSync,
  readFileSync,
  rmSync,
} from "node:fs";
import { setPriority, tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { kWaitMs } from "./browser.js";

const kPort = 8710;
export const kAddress = `http://127.0.0.1:${String(kPort)}/`;

function built(name: string): string {
  return resolve(process.env.KERUL_BUILD ?? "..", name);
}

/** The folder that holds what these programs write, and what is to be killed at the end. */
export class Programs {
  readonly folder = mkdtempSync(join(tmpdir(), "lidar_page_"));
  private readonly running = new Map<string, ChildProcess>();

  /** Calibration of the simulated sensor, for node and server. */
  get calibration(): string {
    const parent = join(this.folder, "calibration");
    return join(parent, readdirSync(parent)[0]);
  }

  makeCalibration(scene: string): void {
    const capture = join(this.folder, "first.pcap");
    const words = [
      "--scene",
      scene,
      "--calibration",
      join(this.folder, "calibration"),
      "--frames",
      "1",
    ];
    execFileSync(built("tools/sensor_simulator"), [...words, "--capture", capture, "--quiet"]);
  }

  async startNode(): Promise<void> {
    this.start("node", built("lidar_node"), ["--cali_path", this.calibration]);
    await this.waitForOutput("node", /detect threshold load succssed/);
  }

  /** Keeps the raw packets in five files of 20 MB below `captures`, for stories. */
  async startCapture(): Promise<void> {
    mkdirSync(this.captures);
    const file = join(this.captures, "raw.pcap");
    this.start("capture", "dumpcap", [
      ...["-i", "lo", "-f", "udp port 2368", "-B", "64"],
      ...["-P", "-b", "filesize:20000", "-b", "files:5", "-w", file],
    ]);
    await this.waitForOutput("capture", /File: /);
  }

  get captures(): string {
    return join(this.folder, "captures");
  }

  startServer(more: readonly string[] = []): void {
    const words = ["--port", String(kPort), "--calib", this.calibration, ...more];
    this.start("server", built("tools/lidar_web"), words);
  }

  /** Frames come until it is stopped, or as many as asked for. Two are computed ahead. */
  startSensor(scene: string, more: readonly string[] = []): void {
    const words = ["--scene", scene, "--loop", "2", "--rate", "5", "--quiet", ...more];
    this.start("sensor", built("tools/sensor_simulator"), words);
  }

  /** Keeps the latest complete frame; `stopViewer` gives it as PCD. */
  startViewer(file: string): void {
    const words = [
      "--seconds",
      "120",
      "--pcd",
      join(this.folder, file),
      "--calib",
      this.calibration,
    ];
    this.start("viewer", built("tools/lidar_view"), words);
  }

  async stopViewer(file: string): Promise<Buffer> {
    this.running.get("viewer")?.kill("SIGINT");
    await this.ended("viewer");
    return readFileSync(join(this.folder, file));
  }

  /** Waits until the program has ended by itself. */
  async ended(name: string): Promise<void> {
    const program = this.running.get(name);
    if (program !== undefined) await new Promise((resolve) => program.once("exit", resolve));
  }

  /** Runs before the others, where this user may say so. */
  prefer(name: string): void {
    try {
      setPriority(this.running.get(name)?.pid ?? 0, -10);
    } catch {
      // It runs as the others do.
    }
  }

  async kill(name: string): Promise<void> {
    const program = this.running.get(name);
    if (program === undefined) return;
    this.running.delete(name);
    const ended = new Promise((resolve) => program.once("exit", resolve));
    program.kill("SIGKILL");
    await ended;
  }

  async end(): Promise<void> {
    for (const name of [...this.running.keys()]) await this.kill(name);
    rmSync(this.folder, { recursive: true, force: true });
  }

  output(name: string): string {
    return readFileSync(join(this.folder, `${name}.log`), "utf8");
  }

  async waitForOutput(name: string, wanted: RegExp): Promise<void> {
    const isThere = () => wanted.test(this.output(name));
    await this.waitFor(() => isThere() || !this.running.has(name), name);
    if (!isThere()) throw new Error(`${name} did not come up:\n${this.output(name)}`);
  }

  async waitFor(isThere: () => boolean, what: string): Promise<void> {
    const deadline = Date.now() + kWaitMs;
    while (!isThere()) {
      if (Date.now() > deadline) throw new Error(`waited in vain for ${what}`);
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
  }

  private start(name: string, program: string, words: readonly string[]): void {
    const log = openSync(join(this.folder, `${name}.log`), "w");
    const child = spawn(program, words, { cwd: this.folder, stdio: ["ignore", log, log] });
    closeSync(log);
    this.running.set(name, child);
    child.once("exit", () => {
      if (this.running.get(name) === child) this.running.delete(name);
    });
  }
}
