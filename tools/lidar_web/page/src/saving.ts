// Files of the frame that is shown. The server makes them of the very message that it sent, so the
// formats have one writer.

import type { Frame } from "./frame.js";

export const kFileKinds = ["pcd", "ply", "las"] as const;
export type FileKind = (typeof kFileKinds)[number];

export function fileName(frame: Frame, kind: string): string {
  return `frame_${String(frame.serial)}_id${String(frame.id)}.${kind}`;
}

export function offerFile(blob: Blob, name: string): void {
  const url = URL.createObjectURL(blob);
  const link = document.createElement("a");
  link.href = url;
  link.download = name;
  link.click();
  // The browser reads it after the click.
  window.setTimeout(() => {
    URL.revokeObjectURL(url);
  }, 60_000);
}

/** Throws with the server's reason when it makes no file. */
export async function pointFile(frame: Frame, kind: FileKind): Promise<Blob> {
  const answer = await fetch(`frame.${kind}`, { method: "POST", body: frame.message });
  if (!answer.ok)
    throw new Error((await answer.text()).trim() || `status ${String(answer.status)}`);
  return answer.blob();
}
