// Plays a view of a clip: a video element that is moved to the right moment and drawn through the view's matrix. What the
// browser cannot play is shown by a version that the server makes, and until that is there by single pictures.

import * as api from "./api.js";
import { boundariesOf, indexAt, lengthOf, placeAt } from "./view.js";
import { clamp, el } from "./dom.js";

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

export class Player extends EventTarget {
  constructor() {
    super();
    this.video = el("video", { playsinline: true, preload: "auto", tabindex: "-1", "aria-hidden": "true" });
    this.still = el("img", { alt: "", hidden: true });
    this.frame = el("div", { class: "frame" }, el("div", { class: "shown" }, this.video, this.still));
    this.position = 0;
    this.isPlaying = false;
    this.usesStills = true;
    this.video.addEventListener("seeked", () => this.#goOn());
    this.video.addEventListener("error", () => this.isDirect && this.#prepare());
    new ResizeObserver(() => this.#place()).observe(this.frame);
    this.gone = new AbortController();
  }

  async load(clip, facts, times) {
    this.clip = clip;
    this.times = times;
    this.facts = facts;
    this.isDirect = isPlayable(facts);
    if (this.isDirect) this.#play(api.clipUrl(clip));
    else if (times.length) await this.#prepare();
  }

  #play(url) {
    this.video.src = url;
    this.video.addEventListener("loadeddata", () => {
      this.usesStills = false;
      this.still.hidden = true;
      this.seek(this.position);
      this.dispatchEvent(new Event("ready"));
    }, { once: true });
  }

  /** Has a version made that the browser can play. */
  async #prepare() {
    this.isDirect = false;
    this.usesStills = true;
    this.seek(this.position);
    const tell = (detail) => this.dispatchEvent(new CustomEvent("preparing", { detail }));
    try {
      const steps = [{ step: "compress", preset: this.facts.size[1] < 480 ? "360p" : "540p" }];
      const { job } = await api.start({ in: this.clip.name, out: "shown", steps, codec: "h264", temporary: true });
      this.gone.signal.addEventListener("abort", () => api.cancel(job).catch(() => {}));
      tell({ share: 0 });
      const state = await api.follow(job, (now) => tell({ share: now.share }));
      tell(null);
      if (state.state === "done") this.#play(api.madeUrl(job));
      else if (!this.gone.signal.aborted) tell({ failed: true });
    } catch {
      tell({ failed: true });
    }
  }

  close() {
    this.pause();
    this.gone.abort();
    this.video.removeAttribute("src");
    this.video.load();
  }

  setView(view) {
    this.view = view;
    this.length = lengthOf(view);
    this.boundaries = boundariesOf(view, this.times, this.clip.seconds);
    this.#place();
    this.seek(Math.min(this.position, this.length));
  }

  /** How the picture lies in `frame`, whose shape is the view's. */
  #place() {
    const width = this.frame.clientWidth;
    if (!this.view || !width) return;
    const scale = width / this.view.size[0];
    const [a, b, c, d, e, f] = this.view.matrix;
    for (const shown of [this.video, this.still]) {
      shown.style.width = `${this.clip.size[0] * scale}px`;
      shown.style.height = `${this.clip.size[1] * scale}px`;
      shown.style.transform = `matrix(${a},${b},${c},${d},${e * scale},${f * scale})`;
    }
  }

  /** Which of the view's pictures is on screen at a moment. */
  pictureAt(moment) {
    return Math.max(0, indexAt(this.boundaries.at, moment + 1e-6));
  }

  /** The clip's own picture number. */
  get pictureNumber() {
    return this.boundaries?.picture[this.pictureAt(this.position)] ?? 0;
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
    const start = this.times[picture] ?? 0;
    return (start + (this.times[picture + 1] ?? Math.max(start + 1e-3, Math.min(this.clip.seconds, start + 0.02)))) / 2;
  }

  #show(picture) {
    this.wanted = picture;
    if (this.usesStills) {
      clearTimeout(this.later);
      this.later = setTimeout(() => this.#showStill(picture), this.still.hidden ? 0 : 80);
    } else if (!this.video.seeking) {
      this.video.currentTime = this.#middleOf(picture);
      this.shown = picture;
    }
  }

  #goOn() {
    if (!this.isPlaying && this.wanted !== this.shown) this.#show(this.wanted);
    else this.dispatchEvent(new Event("shown"));
  }

  #showStill(picture) {
    if (!this.usesStills) return;
    this.still.src = api.pictureUrl(this.clip, this.times[picture] ?? 0, "full");
    this.still.hidden = false;
  }

  toggle() {
    if (this.isPlaying) this.pause();
    else this.play();
  }

  play() {
    if (this.isPlaying || !this.view || !this.times.length) return;
    if (this.pictureAt(this.position) >= this.boundaries.at.length - 1) this.position = 0;
    this.isPlaying = true;
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

  /** Lets the video run through a segment. */
  #enter(place, mustSeek) {
    this.place = place;
    if (this.usesStills || place.segment.backwards) return this.video.pause();
    this.video.playbackRate = clamp(1 / place.segment.ratio, 0.0625, 16);
    if (mustSeek) this.video.currentTime = place.time;
    this.video.play().catch(() => this.pause());
  }

  #tick(now) {
    if (!this.isPlaying) return;
    const { segment, start, index } = this.place;
    const end = start + (segment.to - segment.from) * segment.ratio;
    if (this.usesStills || segment.backwards) {
      this.position += (now - this.last) / 1000;
      this.#show(this.boundaries.picture[this.pictureAt(Math.min(this.position, end - 1e-4))]);
    } else if (!this.video.seeking) {
      this.position = this.video.ended ? end : start + (this.video.currentTime - segment.from) * segment.ratio;
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
    this.dispatchEvent(new Event("time"));
  }
}
