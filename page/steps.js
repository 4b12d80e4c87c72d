// The steps of a clip: in order, each of which can be switched off, moved and removed, with undo. Narration and compression
// come last, since they lie over all that is before them.

import { el, icon, iconButton } from "./dom.js";
import { bytes, clock, t } from "./texts.js";

const last = ["narrate", "compress"];
const rank = (step) => last.indexOf(step.step) + 1;

/** A step in words. */
export function nameOfStep(step) {
  const names = {
    trim: () => (step.keep ? t("stepTrimMany", { n: step.keep.length })
                           : t("stepTrim", { from: clock(Number(step.from ?? 0)), to: step.to ? clock(Number(step.to)) : t("theEnd") })),
    speed: () => t("stepSpeed", { x: Number((1 / step.ratio).toFixed(2)), from: clock(Number(step.from)), to: clock(Number(step.to)) }),
    crop: () => t("stepCrop", { w: step.rect.split(",")[2], h: step.rect.split(",")[3] }),
    rotate: () => t("stepRotate", { form: step.by }),
    loop: () => t("stepLoop", { n: step.count }),
    reverse: () => t("stepReverse"),
    compress: () => (step["max-size"] ? t("stepCompressSize", { what: bytes(Number(step["max-size"])) }) : t("stepCompress", { what: step.preset })),
    narrate: () => t("stepNarrate", { n: step.piece.length }),
  };
  return names[step.step]();
}

export class Steps {
  #past = [];
  #future = [];

  constructor(entry, onChange) {
    this.key = `steps ${entry.name} ${entry.changed}`;
    this.onChange = onChange;
    this.items = JSON.parse(sessionStorage.getItem(this.key) ?? "[]");
    this.element = el("ol", { class: "steps" });
    this.#render();
  }

  /** Those that are switched on, as the job has them. */
  active() {
    return this.items.filter((item) => !item.off).map((item) => this.#plain(item.step));
  }

  #plain(step) {
    if (step.step !== "narrate") return step;
    return { step: "narrate", "base-volume": String(step.base), piece: step.piece.map((p) => `${p.file}@${p.at.toFixed(3)}:${p.volume}`) };
  }

  find(name) {
    return this.items.find((item) => item.step.step === name && !item.off)?.step;
  }

  pieces() {
    return this.find("narrate")?.piece ?? [];
  }

  /** Of narration and compression there is one: a new one takes the place of the old one. */
  add(step) {
    this.change((items) => {
      const kept = rank(step) ? items.filter((item) => item.step.step !== step.step) : items;
      return [...kept, { step, off: false }].sort((a, b) => rank(a.step) - rank(b.step));
    });
  }

  movePiece(i, at) {
    const narration = structuredClone(this.find("narrate"));
    narration.piece[i].at = at;
    this.add(narration);
  }

  change(make) {
    this.#past.push(JSON.stringify(this.items));
    this.#future = [];
    this.#become(make(structuredClone(this.items)));
  }

  #become(items) {
    this.items = items;
    sessionStorage.setItem(this.key, JSON.stringify(items));
    this.#render();
    this.onChange();
  }

  get canUndo() {
    return this.#past.length > 0;
  }
  get canRedo() {
    return this.#future.length > 0;
  }

  undo() {
    if (!this.canUndo) return;
    this.#future.push(JSON.stringify(this.items));
    this.#become(JSON.parse(this.#past.pop()));
  }

  redo() {
    if (!this.canRedo) return;
    this.#past.push(JSON.stringify(this.items));
    this.#become(JSON.parse(this.#future.pop()));
  }

  #swap(i, j) {
    this.change((items) => {
      [items[i], items[j]] = [items[j], items[i]];
      return items;
    });
    this.element.children[j]?.querySelector("button:not(:disabled)")?.focus();
  }

  #canSwap(i, j) {
    return Boolean(this.items[i] && this.items[j]) && rank(this.items[i].step) === rank(this.items[j].step);
  }

  #render() {
    if (!this.items.length) {
      this.element.replaceChildren(el("li", { class: "none" }, t("noSteps")));
      return;
    }
    this.element.replaceChildren(...this.items.map((item, i) => {
      const name = nameOfStep(item.step);
      const isOn = el("input", { type: "checkbox", class: "switch", checked: !item.off, "aria-label": t("stepOn", { step: name }),
        onchange: () => this.change((items) => {
          items[i].off = !items[i].off;
          return items;
        }) });
      return el("li", { class: item.off ? "off" : "" }, icon(item.step.step), el("span", { class: "name" }, name),
        iconButton(t("moveUp", { step: name }), "up", { disabled: !this.#canSwap(i - 1, i), onclick: () => this.#swap(i, i - 1) }),
        iconButton(t("moveDown", { step: name }), "down", { disabled: !this.#canSwap(i, i + 1), onclick: () => this.#swap(i, i + 1) }),
        iconButton(t("remove", { step: name }), "close", { onclick: () => this.change((items) => items.filter((_, j) => j !== i)) }),
        isOn);
    }));
  }
}
