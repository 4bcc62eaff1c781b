// Elements of index.html, by id and kind. A missing one is a mistake of ours and stops the page.

export function byId<T extends HTMLElement>(id: string, kind: new () => T): T {
  const element = document.getElementById(id);
  if (!(element instanceof kind)) throw new Error(`no ${kind.name} "${id}"`);
  return element;
}

export function all<T extends HTMLElement>(selector: string, kind: new () => T): T[] {
  return [...document.querySelectorAll(selector)].filter(
    (element): element is T => element instanceof kind,
  );
}

/** Writes only what has changed, so that a page that stands still causes no layout. */
export function setText(element: HTMLElement, text: string): void {
  if (element.textContent !== text) element.textContent = text;
}
