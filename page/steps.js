// The steps of a clip: in order, each of which can be changed, switched off, moved and removed, with undo. Narration and
// compression come last, since they lie over all that is before them.

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
    join: () => t("stepJoin", { name: step.in.join(", ") }),
    compress: () => (step["max-size"] ? t("stepCompressSize", { what: bytes(Number(step["max-size"])) }) : t("stepCompress", { what: step.preset })),
    narrate: () => t("stepNarrate", { n: step.piece.length }),
  };
  return names[step.step]();
}

export class Steps {
  #past = [];
  #future = [];

  /** `onOpen` is told of a click on a step, and which one it is. */
  constructor(entry, onChange, onOpen) {
    this.key = `steps ${entry.name} ${entry.changed}`;
    this.onChange = onChange;
    this.onOpen = onOpen;
    this.items = JSON.parse(sessionStorage.getItem(this.key) ?? "[]");
    this.element = el("ol", { class: "steps" });
    this.#render();
  }

  #on(end) {
    return this.items.slice(0, end).filter((item) => !item.off).map((item) => item.step);
  }

  /** Those before `end` that are switched on, as the job has them. */
  active(end) {
    return this.#on(end).map((step) => this.#plain(step));
  }

  #plain(step) {
    if (step.step !== "narrate") return step;
    return { step: "narrate", "base-volume": String(step.base), piece: step.piece.map((p) => `${p.file}@${p.at.toFixed(3)}:${p.volume}`) };
  }

  pieces(end) {
    return this.#on(end).find((step) => step.step === "narrate")?.piece ?? [];
  }

  /** Where narration or compression is, of which there is one; -1 where it is not, and for other steps. */
  placeOf(name) {
    return last.includes(name) ? this.items.findIndex((item) => item.step.step === name) : -1;
  }

  /** Puts a step in the place of the one at `index`, or behind those that there are. */
  put(step, index = this.placeOf(step.step)) {
    this.change((items) => {
      items.splice(index < 0 ? items.length : index, 1, { step, off: false });
      return items.sort((a, b) => rank(a.step) - rank(b.step));
    });
  }

  movePiece(i, at) {
    const narration = structuredClone(this.items[this.placeOf("narrate")].step);
    narration.piece[i].at = at;
    this.put(narration);
  }

  /** Shows which step is being changed, and that those behind it wait; -1 for none. */
  mark(index) {
    this.items.forEach((_, i) => {
      const row = this.element.children[i];
      row.classList.toggle("changing", i === index);
      row.querySelector(".waits").hidden = index < 0 || i <= index;
      row.querySelector("button.name")?.setAttribute("aria-expanded", String(i === index));
    });
  }

  focus(index) {
    this.element.children[index]?.querySelector("button.name")?.focus({ preventScroll: true });
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
    this.element.children[j]?.querySelector("button.quiet:not(:disabled)")?.focus();
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
      const isFixed = item.step.step === "reverse";
      return el("li", { class: item.off ? "off" : "" }, icon(item.step.step),
        isFixed ? el("span", { class: "name" }, name) : el("button", { type: "button", class: "name", title: t("change"),
          "aria-expanded": "false", onclick: (event) => this.onOpen(i, event) }, name),
        el("span", { class: "waits", hidden: true }, t("paused")),
        iconButton(t("moveUp", { step: name }), "up", { disabled: !this.#canSwap(i - 1, i), onclick: () => this.#swap(i, i - 1) }),
        iconButton(t("moveDown", { step: name }), "down", { disabled: !this.#canSwap(i, i + 1), onclick: () => this.#swap(i, i + 1) }),
        iconButton(t("remove", { step: name }), "close", { onclick: () => this.change((items) => items.filter((_, j) => j !== i)) }),
        isOn);
    }));
  }
}
