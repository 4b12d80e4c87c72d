// The strip of pictures with the sound's wave below it: shows a view, the position, the selection and pieces of narration.

import { clamp, el, loadPicture, onDrag } from "./dom.js";
import { layPicture } from "./player.js";
import { clock, t } from "./texts.js";
import { lengthOf, placeAt } from "./view.js";

const stripHeight = 64;

export class Timeline extends EventTarget {
  constructor(player) {
    super();
    this.player = player;
    this.pieces = [];
    this.strip = el("div", { class: "strip", "aria-hidden": "true" });
    this.wave = el("canvas", { class: "wave", "aria-hidden": "true" });
    this.shade = [el("div", { class: "shade" }), el("div", { class: "shade" })];
    this.handles = ["start", "end"].map((which) => el("div", {
      class: `handle ${which}`, role: "slider", tabindex: "0", onkeydown: (event) => this.#keyOnHandle(event, which),
      "aria-label": t(which === "start" ? "selectionStart" : "selectionEnd"), "aria-valuemin": "0",
    }));
    this.head = el("div", { class: "head", role: "slider", tabindex: "0", "aria-label": t("position"), "aria-valuemin": "0" });
    this.lane = el("div", { class: "lane", hidden: true });
    this.body = el("div", { class: "body" }, this.strip, this.wave, this.shade, this.handles, this.head);
    this.element = el("section", { class: "timeline", "aria-label": t("timeline") }, this.body, this.lane);
    onDrag(this.body, (event) => this.#scrub(event));
    this.handles.forEach((handle, i) => onDrag(handle, (event) => {
      event.stopPropagation();
      const place = ([this.selection.from, this.selection.to][i] / this.length) * this.body.clientWidth;
      const grip = event.clientX - this.body.getBoundingClientRect().left - place;
      return (moved) => this.#moveEnd(i, this.momentAt(moved.clientX - grip));
    }));
    player.addEventListener("time", () => this.#placeHead());
    player.addEventListener("drafts", () => this.#fillStrip());
    new ResizeObserver(() => this.draw()).observe(this.body);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.#drawWave());
  }

  setView(view) {
    this.view = view;
    this.length = lengthOf(view);
    this.selection = { from: 0, to: this.length };
    this.draw();
    this.#tellSelection();
  }

  get isWhole() {
    return this.selection.from <= 0 && this.selection.to >= this.length;
  }

  momentAt(clientX) {
    const box = this.body.getBoundingClientRect();
    return clamp((clientX - box.left) / box.width, 0, 1) * this.length;
  }

  /** To the moment at which the nearest picture comes, or the end. */
  #snapped(moment) {
    const at = this.player.boundaries.at;
    const before = this.player.pictureAt(moment);
    const nearest = [at[before], at[before + 1] ?? this.length].sort((a, b) => Math.abs(a - moment) - Math.abs(b - moment));
    return nearest[0] ?? 0;
  }

  select(from, to) {
    this.selection = { from, to };
    this.#placeSelection();
    this.#tellSelection();
  }

  #tellSelection() {
    this.dispatchEvent(new Event("selection"));
  }

  #moveEnd(which, moment) {
    const at = this.#snapped(moment);
    const { from, to } = this.selection;
    if (which === 0 && at < to - 1e-6) this.select(at, to);
    if (which === 1 && at > from + 1e-6) this.select(from, at);
    this.player.pause();
    this.player.seek(which === 0 ? this.selection.from : this.selection.to - 1e-4);
  }

  /** The start or the end of the selection where the clip is now. */
  mark(which) {
    const at = this.player.pictureAt(this.player.position);
    const next = this.player.boundaries.at[at + 1] ?? this.length;
    if (which === 0) this.#moveEnd(0, this.player.position);
    else this.#moveEnd(1, next);
  }

  #keyOnHandle(event, which) {
    const direction = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    if (!direction) return;
    event.preventDefault();
    event.stopPropagation();
    const index = which === "start" ? 0 : 1;
    const now = index ? this.selection.to : this.selection.from;
    const at = this.player.boundaries.at;
    const step = event.shiftKey ? Math.round(at.length / Math.max(this.length, 1e-3)) : 1;
    const place = now >= this.length - 1e-6 ? at.length : this.player.pictureAt(now);
    this.#moveEnd(index, at[clamp(place + direction * step, 0, at.length)] ?? this.length);
  }

  #scrub(event) {
    if (!this.view || event.target.closest(".handle")) return null;
    this.player.pause();
    this.player.seek(this.momentAt(event.clientX));
    return (moved) => this.player.seek(this.momentAt(moved.clientX));
  }

  draw() {
    const width = this.body.clientWidth;
    if (!this.view || !width) return;
    this.#drawStrip(width);
    this.#drawWave();
    this.#placeSelection();
    this.#placeHead();
    this.showPieces(this.pieces);
  }

  #drawStrip(width) {
    const [w, h] = this.view.size;
    const cellWidth = clamp((stripHeight * w) / h, 36, 160);
    const count = Math.max(2, Math.ceil(width / cellWidth));
    const scale = Math.max(stripHeight / h, width / count / w);
    const { at, picture } = this.player.boundaries;
    this.waiting = [];
    const cells = Array.from({ length: count }, (_, i) => {
      const moment = ((i + 0.5) / count) * this.length;
      const image = el("img", { alt: "", draggable: "false" });
      if (at.length) this.waiting.push({ image, picture: picture[this.player.pictureAt(moment)] });
      layPicture(image, placeAt(this.view, moment).segment, scale);
      return el("div", {}, image);
    });
    this.strip.replaceChildren(...cells);
    this.player.first.then(() => this.#fillStrip());
  }

  #fillStrip() {
    this.waiting = this.waiting?.filter(({ image, picture }) => {
      const url = this.player.smallUrl(picture);
      if (url) loadPicture(image, url);
      return !url;
    });
  }

  #drawWave() {
    if (!this.view) return;
    this.wave.hidden = !this.view.segments.some((segment) => segment.source.clip.hasSound);
    const box = this.wave.getBoundingClientRect();
    const ratio = devicePixelRatio || 1;
    this.wave.width = box.width * ratio;
    this.wave.height = box.height * ratio;
    const context = this.wave.getContext("2d");
    context.fillStyle = getComputedStyle(this.wave).color;
    const middle = this.wave.height / 2;
    const bar = Math.max(1, Math.round(2 * ratio));
    for (let x = 0; x < this.wave.width; x += bar + Math.round(ratio)) {
      const { time, segment } = placeAt(this.view, (x / this.wave.width) * this.length);
      const { clip, offset, peaks } = segment.source;
      const peak = peaks[Math.floor(((time - offset) / clip.seconds) * peaks.length)] ?? 0;
      const half = Math.max(ratio / 2, Math.sqrt(peak / 100) * (middle - ratio));
      context.fillRect(x, middle - half, bar, 2 * half);
    }
  }

  showPeaks(source, peaks) {
    source.peaks = peaks;
    this.#drawWave();
  }

  #percent(moment) {
    return `${(100 * moment) / (this.length || 1)}%`;
  }

  #placeSelection() {
    const { from, to } = this.selection;
    this.shade[0].style.width = this.#percent(from);
    this.shade[1].style.left = this.#percent(to);
    this.handles[0].style.left = this.#percent(from);
    this.handles[1].style.left = this.#percent(to);
    [from, to].forEach((moment, i) => {
      this.handles[i].setAttribute("aria-valuemax", this.length.toFixed(3));
      this.handles[i].setAttribute("aria-valuenow", moment.toFixed(3));
      this.handles[i].setAttribute("aria-valuetext", clock(moment));
    });
    this.element.classList.toggle("selected", !this.isWhole);
  }

  #placeHead() {
    if (!this.view) return;
    this.head.style.left = this.#percent(this.player.position);
    this.head.setAttribute("aria-valuemax", this.length.toFixed(3));
    this.head.setAttribute("aria-valuenow", this.player.position.toFixed(3));
    this.head.setAttribute("aria-valuetext", `${clock(this.player.position)}, ${t("picture", { n: this.player.pictureNumber })}`);
  }

  /** Narration: blocks below the wave that can be dragged; `onMove` is told of the piece and its new start. */
  showPieces(pieces, onMove = this.onMove) {
    this.pieces = pieces;
    this.onMove = onMove;
    this.lane.hidden = pieces.length === 0;
    this.lane.replaceChildren(...pieces.map((piece, i) => {
      const block = el("div", { class: "piece", title: t("piece", { n: i + 1 }) }, String(i + 1));
      block.style.left = this.#percent(piece.at);
      block.style.width = this.#percent(Math.min(piece.seconds, this.length - piece.at));
      onDrag(block, (event) => {
        const grip = this.momentAt(event.clientX) - piece.at;
        return (moved, isLast) => {
          const at = clamp(this.momentAt(moved.clientX) - grip, 0, Math.max(0, this.length - 0.05));
          block.style.left = this.#percent(at);
          if (isLast) this.onMove(i, at);
        };
      });
      return block;
    }));
  }
}
