// Pictures at once while somebody scrubs: a small version, of which every twelfth picture can be gone to, made ten seconds at a
// time, the nearest first. It lies over the video until that has the picture itself.

import { el } from "./dom.js";

const longestQuickGroup = 60;  // pictures
const mostPieces = 18;         // three minutes

/** Whether the browser may take long to go to a picture of this clip. */
export const isSlow = (facts) =>
  facts.tracks.find((track) => track.type === "video")?.pictures?.longestGroup > longestQuickGroup;

export class Drafts {
  /** `make` makes a piece, which gets a URL then, and settles when that is over; `onMade` is told so. */
  constructor(make, onMade) {
    this.make = make;
    this.onMade = onMade;
    this.video = el("video", { playsinline: true, preload: "auto", tabindex: "-1", "aria-hidden": "true", hidden: true });
    this.pieces = [];
    this.open = null;
    this.wanted = null;  // { piece, time }
    this.near = 0;
    this.video.addEventListener("loadeddata", () => this.#goOn());
    this.video.addEventListener("seeked", () => this.#goOn());
  }

  add(pieces) {
    this.pieces.push(...pieces);
    this.#makeNext();
  }

  pieceAt(source, time) {
    return this.pieces.findLast((piece) => piece.source === source && piece.from <= time + 1e-6);
  }

  /** Shows what a source has at a time, as soon as can be; whether it will. */
  show(source, time) {
    this.near = time;
    const piece = this.pieceAt(source, time);
    if (!piece?.url) {
      this.hide();
      return false;
    }
    this.wanted = { piece, time };
    this.#seek();
    return true;
  }

  hide() {
    this.wanted = null;
    this.video.hidden = true;
  }

  close() {
    this.isClosed = true;
    this.video.removeAttribute("src");
    this.video.load();
  }

  #seek() {
    const { piece, time } = this.wanted;
    if (piece !== this.open) {
      this.open = piece;
      this.video.hidden = true;
      this.video.src = piece.url;
    } else if (!this.video.seeking && this.video.readyState > 0) {
      this.shown = this.wanted;
      this.video.currentTime = time - piece.from;
    }
  }

  #goOn() {
    if (!this.wanted) return;
    if (this.shown === this.wanted) this.video.hidden = false;
    else this.#seek();
  }

  /** One after the other, the nearest first. */
  async #makeNext() {
    if (this.isMaking) return;
    this.isMaking = true;
    const distance = ({ from, to }) => Math.max(from - this.near, this.near - to, 0);
    for (let missing; (missing = this.pieces.filter((piece) => !piece.url && !piece.isLeft)).length && !this.isClosed;) {
      const piece = missing.reduce((best, other) => (distance(other) < distance(best) ? other : best));
      if (this.pieces.length - missing.length < mostPieces) await this.make(piece).catch(() => {});
      piece.isLeft = !piece.url;
      this.onMade();
    }
    this.isMaking = false;
  }
}
