// Plays a view of clips: a video element that is moved to the right moment and drawn through the matrix of what is shown. What
// the browser cannot play is shown by a small version that the server makes, piece by piece where somebody looks, and until a
// piece is there by single pictures.

import * as api from "./api.js";
import { Drafts, isSlow } from "./drafts.js";
import { boundariesOf, indexAt, lengthOf, placeAt, typedEnd, typedStart } from "./view.js";
import { clamp, el } from "./dom.js";

const pieceSeconds = 10;
const patience = 150;  // ms that somebody stays at a place before a piece is made for it
const rest = 400;      // ms that somebody stays at a picture before the video follows its draft
const playableCodecs = ["h264", "vp8", "vp9", "av1"];

/** Whether the browser shows this clip as it is: its codec, and nothing that players disagree about. */
export function isPlayable(facts) {
  const video = facts.tracks.find((track) => track.type === "video");
  if (!video || !playableCodecs.includes(video.codec)) return false;
  const [a, b, c, d] = video.transform;
  const isMirrored = a * d - b * c < 0;
  const segments = video.segments ?? [];
  const isEdited = segments.length !== 1 || segments[0].empty;
  return !isMirrored && !isEdited && (video.pictures?.bitDepth ?? 8) === 8 && !video.pictures?.interlaced;
}

/** Lays an element that shows a segment's picture where its view has it, so large that a pixel of the view is `scale` wide. */
export function layPicture({ style }, { source, matrix: [a, b, c, d, e, f] }, scale) {
  style.width = `${source.clip.size[0] * scale}px`;
  style.height = `${source.clip.size[1] * scale}px`;
  style.transform = `matrix(${a},${b},${c},${d},${e * scale},${f * scale})`;
}

export class Player extends EventTarget {
  constructor() {
    super();
    this.video = el("video", { playsinline: true, preload: "auto", tabindex: "-1", "aria-hidden": "true" });
    this.drafts = new Drafts((piece) => this.#make(piece), () => this.dispatchEvent(new Event("drafts")));
    this.still = el("img", { alt: "", hidden: true });
    this.frame = el("div", { class: "frame" }, el("div", { class: "shown" }, this.video, this.still, this.drafts.video));
    /** Fulfilled once there is something to see: all that takes time waits for that. */
    this.first = new Promise((done) => {
      for (const [shown, event] of [[this.video, "loadeddata"], [this.still, "load"], [this.still, "error"], [this, "nothing"]])
        shown.addEventListener(event, done, { once: true });
    });
    this.position = 0;
    this.isPlaying = false;
    this.sources = [];
    this.times = [];
    this.pieces = [];
    this.making = new Set();  // numbers of jobs
    this.open = null;  // the piece that the video element has
    this.video.addEventListener("seeked", () => this.#goOn());
    this.#watchFrames();
    this.video.addEventListener("error", () => {
      const source = (this.awaited ?? this.open)?.source;
      if (source?.isDirect) this.#prepare(source);
    });
    new ResizeObserver(() => this.#place()).observe(this.frame);
  }

  /** A clip that views can show; the first one is the one that is edited. Times and pictures count on from one to the next. */
  add(clip, facts, times) {
    const before = this.sources.at(-1);
    const offset = before ? Math.max(before.offset + before.clip.seconds, (this.times.at(-1) ?? 0) + 1e-3) : 0;
    const source = { clip, facts, offset, first: this.times.length, count: times.length, isDirect: isPlayable(facts), peaks: [] };
    this.sources.push(source);
    this.times = this.times.concat(times.map((time) => offset + time));
    if (!times.length) this.dispatchEvent(new Event("nothing"));
    if (source.isDirect) {
      this.pieces.push({ source, from: offset, to: Infinity, url: api.clipUrl(clip) });
      if (isSlow(facts)) this.drafts.add(this.#divide(source).map((piece) => ({ ...piece, isDraft: true })));
    } else {
      this.#prepare(source);
    }
    return source;
  }

  #sourceOf(picture) {
    return this.sources.findLast((source) => source.first <= picture);
  }

  /** The pieces of which a version is made that the browser can play. Each begins with a picture. */
  #divide(source) {
    const starts = [source.offset];
    if (source.clip.seconds > 1.5 * pieceSeconds) {
      for (const time of this.times.slice(source.first, source.first + source.count)) {
        if (time >= starts.at(-1) + pieceSeconds) starts.push(time);
      }
    }
    return starts.map((from, i) => ({ source, from, to: starts[i + 1] ?? Infinity }));
  }

  #prepare(source) {
    source.isDirect = false;
    if (this.open?.source === source) this.open = null;
    const pieces = this.#divide(source);
    this.pieces = [...this.pieces.filter((piece) => piece.source !== source), ...pieces].sort((a, b) => a.from - b.from);
    if (source.count) this.drafts.add(pieces);
    if (this.view) this.seek(this.position);
  }

  #pieceAt(time) {
    return this.pieces[Math.max(0, this.pieces.findLastIndex((piece) => piece.from <= time + 1e-6))];
  }

  /** Has a piece made, where it is not; a piece that is being made for another place is given up. */
  #make(piece) {
    if (!piece.url) piece.coming ??= this.#request(piece).finally(() => (piece.coming = null));
    return piece.coming;
  }

  async #request(piece) {
    await this.first;
    if (piece === this.awaited) this.#giveUp();
    const { clip, offset } = piece.source;
    const trim = { step: "trim", ...(piece.from > offset && { from: typedStart(piece.from - offset) }),
                   ...(piece.to < Infinity && { to: typedEnd(piece.to - offset) }) };
    const steps = [{ step: "compress", preset: clip.size[1] < 480 ? "360p" : "540p" }];
    if (trim.from || trim.to) steps.unshift(trim);
    const { job } = await api.start({ in: clip.name, out: "shown", steps, codec: "h264", temporary: true, draft: true });
    this.making.add(job);
    const state = await api.follow(job, (now) => piece === this.awaited && this.#tellPreparing({ share: now.share }));
    this.making.delete(job);
    if (state.state === "done") Object.assign(piece, { job, url: api.madeUrl(job) });
    else if (state.state === "failed" && !piece.isDraft) piece.source.hasFailed = true;
  }

  #giveUp() {
    for (const job of this.making) api.cancel(job).catch(() => {});
  }

  /** Puts a piece into the video element, unless another one is wanted meanwhile. */
  async #enterPiece(piece) {
    this.awaited = piece;
    try {
      if (!piece.url) await new Promise((done) => setTimeout(done, patience));
      if (piece === this.awaited) await this.#make(piece);
    } catch {
      piece.source.hasFailed = true;
    }
    if (piece !== this.awaited || this.isClosed) return;
    this.#tellPreparing(piece.source.hasFailed ? { failed: true } : null);
    if (!piece.url) return;
    await new Promise((done) => {
      this.video.addEventListener("loadeddata", done, { once: true });
      this.video.src = piece.url;
    });
    if (piece !== this.awaited) return;
    this.awaited = null;
    this.open = piece;
    this.shown = null;
    this.#place();
    if (!this.isPlaying) this.#show(this.wanted);
    const next = this.pieces[this.pieces.indexOf(piece) + 1];
    if (next) this.#make(next)?.catch(() => {});
  }

  #tellPreparing(detail) {
    this.dispatchEvent(new CustomEvent("preparing", { detail }));
  }

  /** Whether the browser plays all clips as they are. */
  get isDirect() {
    return this.sources.every((source) => source.isDirect);
  }

  /** All of the clip, where the browser has it in one file. */
  get url() {
    const pieces = this.pieces.filter((piece) => piece.source === this.sources[0]);
    return pieces.length === 1 ? pieces[0].url : undefined;
  }

  pictureUrl(picture, size) {
    const { clip, offset } = this.#sourceOf(picture);
    return api.pictureUrl(clip, this.times[picture] - offset, size);
  }

  /** A small one: of the draft, where there is one; null while that is better waited for. */
  smallUrl(picture) {
    const source = this.#sourceOf(picture);
    const time = this.#middleOf(picture);
    const draft = this.drafts.pieceAt(source, time);
    if (draft?.url) return api.draftPictureUrl(draft.job, time - draft.from);
    return draft && !draft.isLeft && isSlow(source.facts) ? null : this.pictureUrl(picture);
  }

  close() {
    this.isClosed = true;
    this.pause();
    this.awaited = null;
    this.#giveUp();
    this.drafts.close();
    this.video.removeAttribute("src");
    this.video.load();
  }

  setView(view) {
    this.view = view;
    this.length = lengthOf(view);
    this.boundaries = boundariesOf(view, this.times);
    this.#place();
    this.seek(Math.min(this.position, this.length));
  }

  /** How the picture lies in `frame`, whose shape is the view's. */
  #place() {
    const width = this.frame.clientWidth;
    if (!this.view || !width) return;
    const { segment } = placeAt(this.view, this.position);
    // Nothing is better than a picture of another clip.
    if (segment.source !== this.placed?.source) this.still.removeAttribute("src");
    this.video.style.visibility = this.open?.source === segment.source ? "" : "hidden";
    this.placed = segment;
    for (const shown of [this.video, this.drafts.video, this.still]) layPicture(shown, segment, width / this.view.size[0]);
  }

  /** Which of the view's pictures is on screen at a moment. */
  pictureAt(moment) {
    return Math.max(0, indexAt(this.boundaries.at, moment + 1e-6));
  }

  /** That of its own clip. */
  get pictureNumber() {
    const picture = this.boundaries?.picture[this.pictureAt(this.position)];
    return picture === undefined ? 0 : picture - this.#sourceOf(picture).first;
  }

  /** Shows the picture at a moment; the position becomes that at which it comes. */
  seek(moment) {
    if (!this.view) return;
    const at = this.pictureAt(clamp(moment, 0, this.length));
    this.position = this.boundaries.at[at] ?? 0;
    this.#show(this.boundaries.picture[at] ?? 0);
    this.#tell();
  }

  step(pictures) {
    const at = clamp(this.pictureAt(this.position) + pictures, 0, this.boundaries.at.length - 1);
    this.pause();
    this.seek(this.boundaries.at[at] ?? 0);
  }

  /** The middle of a picture's time on screen, so that no rounding shows another. */
  #middleOf(picture) {
    const { clip, offset, first, count } = this.#sourceOf(picture);
    const start = this.times[picture] ?? 0;
    const isLast = picture + 1 >= first + count;
    return (start + (isLast ? Math.max(start + 1e-3, Math.min(offset + clip.seconds, start + 0.02)) : this.times[picture + 1])) / 2;
  }

  #show(picture) {
    this.wanted = picture;
    const time = this.#middleOf(picture);
    const piece = this.#pieceAt(time);
    const isDrafted = this.drafts.show(piece.source, time);
    clearTimeout(this.resting);
    if (piece !== this.open) {
      if (!isDrafted && (!piece.source.isDirect || this.open)) this.#showStill(picture);
      if (piece !== this.awaited && !piece.source.hasFailed) this.#enterPiece(piece);
    } else {
      if (this.awaited) this.#tellPreparing(null);
      this.awaited = null;
      if (isDrafted) this.resting = setTimeout(() => this.#seekVideo(), rest);
      else this.#seekVideo();
    }
  }

  #seekVideo() {
    const time = this.#middleOf(this.wanted);
    if (this.video.seeking || this.#pieceAt(time) !== this.open) return;
    this.video.currentTime = time - this.open.from;
    this.shown = this.wanted;
    this.nudges = 0;
    this.#settle();
  }

  /** Notes which picture the browser has put on screen, where it tells. */
  #watchFrames() {
    this.video.requestVideoFrameCallback?.((now, frame) => {
      this.presented = frame.mediaTime;
      this.#watchFrames();
    });
  }

  /** A busy browser may leave a paused video at the picture before: asks again until the right one is on screen. */
  #settle() {
    clearTimeout(this.settling);
    this.settling = setTimeout(() => {
      if (this.isPlaying || this.isClosed || !this.open || this.presented === undefined || this.nudges >= 3) return;
      if (!this.video.seeking) {
        const time = this.#middleOf(this.wanted);
        const start = this.times[this.wanted] - this.open.from;
        if (this.#pieceAt(time) !== this.open || Math.abs(this.presented - start) < 2e-3) return;
        this.shown = this.wanted;
        this.video.currentTime = time - this.open.from + ++this.nudges * 1e-4;
      }
      this.#settle();
    }, 300);
  }

  #goOn() {
    if (!this.isPlaying && this.wanted !== this.shown) {
      this.#show(this.wanted);
    } else {
      clearTimeout(this.later);
      this.still.hidden = true;
      this.drafts.hide();
    }
  }

  #showStill(picture) {
    clearTimeout(this.later);
    if (!this.times.length) return;
    const show = () => {
      this.still.src = this.pictureUrl(picture, this.#sourceOf(picture).clip.size[1] > 720 ? "large" : "full");
      this.still.hidden = false;
    };
    if (this.still.hidden) show();
    else this.later = setTimeout(show, 80);
  }

  toggle() {
    if (this.isPlaying) this.pause();
    else this.play();
  }

  play() {
    if (this.isPlaying || !this.view || !this.times.length) return;
    if (this.pictureAt(this.position) >= this.boundaries.at.length - 1) this.position = 0;
    this.isPlaying = true;
    clearTimeout(this.resting);
    this.last = performance.now();
    this.#enter(placeAt(this.view, this.position), true);
    requestAnimationFrame((now) => this.#tick(now));
    this.dispatchEvent(new Event("state"));
  }

  pause() {
    if (!this.isPlaying) return;
    this.isPlaying = false;
    this.video.pause();
    this.seek(this.position);
    this.dispatchEvent(new Event("state"));
  }

  /** Whether pictures are shown one after the other, in place of the video. */
  #usesPictures(segment) {
    return segment.backwards || segment.source.hasFailed;
  }

  /** Lets the video run through a segment, from a time of the clip on. */
  #enter(place, mustSeek) {
    this.place = place;
    this.isWaiting = false;
    if (this.#usesPictures(place.segment)) return this.video.pause();
    const piece = this.#pieceAt(place.time);
    if (piece !== this.open) {
      this.isWaiting = true;
      if (piece !== this.awaited) this.#enterPiece(piece);
      return;
    }
    this.video.playbackRate = clamp(1 / place.segment.ratio, 0.0625, 16);
    if (mustSeek) this.video.currentTime = place.time - piece.from;
    this.video.play().catch(() => this.pause());
  }

  #tick(now) {
    if (!this.isPlaying) return;
    const { segment, start, index } = this.place;
    const end = start + (segment.to - segment.from) * segment.ratio;
    if (this.#usesPictures(segment)) {
      this.position += (now - this.last) / 1000;
      this.#show(this.boundaries.picture[this.pictureAt(Math.min(this.position, end - 1e-4))]);
    } else if (this.isWaiting) {
      if (this.#pieceAt(this.place.time) === this.open || segment.source.hasFailed) this.#enter(this.place, true);
    } else if (!this.video.seeking) {
      const isPieceOver = this.video.ended || this.open.from + this.video.currentTime >= this.open.to - 1e-3;
      const time = isPieceOver ? Math.min(this.open.to, segment.to) : this.open.from + this.video.currentTime;
      this.position = start + (time - segment.from) * segment.ratio;
      if (isPieceOver && this.open.to < segment.to - 1e-3) this.#enter({ ...this.place, time: this.open.to }, true);
    }
    this.last = now;
    if (this.position >= end - 2e-3) {
      if (index + 1 >= this.view.segments.length) {
        this.position = this.boundaries.at.at(-1);
        return this.pause();
      }
      const next = placeAt(this.view, end + 1e-9);
      this.position = end;
      this.#enter(next, segment.backwards || Math.abs(next.time - segment.to) > 1e-3);
    }
    this.#tell();
    requestAnimationFrame((later) => this.#tick(later));
  }

  #tell() {
    if (placeAt(this.view, this.position).segment !== this.placed) this.#place();
    this.dispatchEvent(new Event("time"));
  }
}
