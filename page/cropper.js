// The rectangle on the picture: dragged, sized at its corners and edges, moved by keys. In pixels of the view.

import { clamp, el, onDrag } from "./dom.js";
import { t } from "./texts.js";

const least = 16;
const grips = [[-1, -1], [0, -1], [1, -1], [1, 0], [1, 1], [0, 1], [-1, 1], [-1, 0]];

export class Cropper extends EventTarget {
  constructor(frame, size) {
    super();
    this.frame = frame;
    this.size = size;
    this.ratio = 0;
    this.box = el("div", { class: "crop", role: "group", tabindex: "0", "aria-label": t("cropArea"),
                           onkeydown: (event) => this.#key(event) }, el("div", { class: "thirds" }));
    for (const [x, y] of grips) {
      const grip = el("div", { class: `grip x${x} y${y}` });
      onDrag(grip, (event) => {
        event.stopPropagation();
        return this.#sizing(event, x, y);
      });
      this.box.append(grip);
    }
    onDrag(this.box, (event) => this.#moving(event));
    this.rect = { x: 0, y: 0, w: size[0], h: size[1] };
    this.hole = el("div", { class: "hole" });
    this.dim = el("div", { class: "dim" }, this.hole);
    frame.append(this.dim, this.box);
    this.set({ x: size[0] * 0.1, y: size[1] * 0.1, w: size[0] * 0.8, h: size[1] * 0.8 });
  }

  remove() {
    this.dim.remove();
    this.box.remove();
  }

  #pixels(length) {
    return (length * this.size[0]) / this.frame.clientWidth;
  }

  #moving(event) {
    const start = { ...this.rect };
    const [x, y] = [event.clientX, event.clientY];
    return (moved) => this.set({ ...start, x: start.x + this.#pixels(moved.clientX - x), y: start.y + this.#pixels(moved.clientY - y) });
  }

  #sizing(event, sideX, sideY) {
    const start = { ...this.rect };
    const [x, y] = [event.clientX, event.clientY];
    return (moved) => {
      const w = start.w + sideX * this.#pixels(moved.clientX - x);
      const h = start.h + sideY * this.#pixels(moved.clientY - y);
      this.#resize(start, sideX, sideY, w, h);
    };
  }

  /** Gives the rectangle a size, with the sides that are not dragged where they are, within the picture and its shape. */
  #resize(start, sideX, sideY, w, h) {
    const fixedX = sideX < 0 ? start.x + start.w : start.x;
    const fixedY = sideY < 0 ? start.y + start.h : start.y;
    const mostW = sideX < 0 ? fixedX : this.size[0] - fixedX;
    const mostH = sideY < 0 ? fixedY : this.size[1] - fixedY;
    w = clamp(w, least, mostW);
    h = clamp(h, least, mostH);
    if (this.ratio) {
      if (sideX === 0) w = h * this.ratio;
      else h = w / this.ratio;
      const fit = Math.min(1, mostW / w, mostH / h);
      w *= fit;
      h *= fit;
    }
    this.set({ x: sideX < 0 ? fixedX - w : fixedX, y: sideY < 0 ? fixedY - h : fixedY, w, h });
  }

  /** Whole pixels within the picture. */
  set({ x, y, w, h }) {
    w = clamp(Math.round(w), Math.min(least, this.size[0]), this.size[0]);
    h = clamp(Math.round(h), Math.min(least, this.size[1]), this.size[1]);
    this.rect = { x: clamp(Math.round(x), 0, this.size[0] - w), y: clamp(Math.round(y), 0, this.size[1] - h), w, h };
    for (const { style } of [this.box, this.hole]) {
      style.left = `${(100 * this.rect.x) / this.size[0]}%`;
      style.top = `${(100 * this.rect.y) / this.size[1]}%`;
      style.width = `${(100 * w) / this.size[0]}%`;
      style.height = `${(100 * h) / this.size[1]}%`;
    }
    this.dispatchEvent(new Event("change"));
  }

  /** The largest rectangle of a shape around the same middle; 0 for any shape. */
  shape(ratio) {
    this.ratio = ratio;
    if (!ratio) return;
    const [w, h] = this.size;
    const width = Math.min(w, h * ratio);
    const middleX = this.rect.x + this.rect.w / 2;
    const middleY = this.rect.y + this.rect.h / 2;
    this.set({ x: middleX - width / 2, y: middleY - width / ratio / 2, w: width, h: width / ratio });
  }

  #key(event) {
    const [x, y] = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] }[event.key] ?? [0, 0];
    if (!x && !y) return;
    event.preventDefault();
    event.stopPropagation();
    const step = event.ctrlKey ? 10 : 2;
    const { rect } = this;
    if (!event.shiftKey) this.set({ ...rect, x: rect.x + step * x, y: rect.y + step * y });
    else this.#resize(rect, x ? 1 : 0, y ? 1 : 0, rect.w + step * x, rect.h + step * y);
  }
}
