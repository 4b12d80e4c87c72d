// A clip, opened: its picture and strip, the tools, and the steps that pile up until one encode makes them.

import * as api from "./api.js";
import { button, el, field, icon, iconButton, say } from "./dom.js";
import { Player } from "./player.js";
import { resultsOf } from "./results.js";
import { Steps, nameOfStep } from "./steps.js";
import { bytes, clock, codec, span, t } from "./texts.js";
import { Timeline } from "./timeline.js";
import { tools } from "./tools.js";
import { viewOf } from "./view.js";

const planDelay = 250;
const peakCount = 2000;

/** What a clip is, in a line: "1920 × 1080 · 30/s · HEVC 10 bit HDR". */
export function kindOf(facts) {
  const video = facts.tracks.find((track) => track.type === "video");
  const sound = facts.tracks.find((track) => track.type === "audio");
  if (!video) return t("noPictures");
  const parts = [`${Math.round(facts.size[0])} × ${Math.round(facts.size[1])}`];
  const depth = video.pictures?.bitDepth > 8 ? ` ${video.pictures.bitDepth} bit` : "";
  const range = video.pictures && video.pictures.dynamicRange !== "SDR" ? ` ${video.pictures.dynamicRange}` : "";
  parts.push(codec(video.codec) + depth + range);
  if (video.frameRate) parts.push(`${Number(video.frameRate.toFixed(2))}/s`);
  if (!sound) parts.push(t("noSound"));
  return parts.join(" · ");
}

export class Editor {
  constructor(entry, onBack) {
    this.clip = { ...entry };
    this.onBack = onBack;
    this.player = new Player();
    this.timeline = new Timeline(this.player);
    this.results = resultsOf(this);
    this.changing = -1;  // the step that the open tool changes
    this.steps = new Steps(entry, () => this.update(), (i, event) => this.#toggleTool(event, this.steps.items[i].step.step, i));
    this.#build();
  }

  async load() {
    const { facts } = await this.know(this.clip);
    this.about.textContent = `${kindOf(facts)} · ${bytes(this.clip.bytes)}`;
    const joined = this.steps.items.flatMap((item) => item.step.in ?? []);
    const { clips } = joined.length ? await api.listClips() : { clips: [] };
    // Without one that has gone the rest is shown; the plan says why.
    for (const clip of clips.filter(({ name }) => joined.includes(name))) await this.know(clip).catch(() => {});
    this.update();
  }

  /** Lets the player show a clip: this one, or one that is joined to it. */
  async know(clip) {
    const known = this.player.sources.find((source) => source.clip.name === clip.name);
    if (known) return known;
    const facts = await api.factsOf(clip);
    const has = (type) => facts.tracks.some((track) => track.type === type);
    const { times } = has("video") ? await api.timesOf(clip) : { times: [] };
    Object.assign(clip, { seconds: facts.seconds, size: facts.size, hasSound: has("audio") });
    const source = this.player.add(clip, facts, times.map(([value, scale]) => value / scale));
    if (clip.hasSound) this.#hear(source);
    return source;
  }

  async #hear(source) {
    await this.player.first;
    await api.peaksOf(source.clip, peakCount).then((told) => this.timeline.showPeaks(source, told.peaks), () => {});
  }

  close() {
    this.#endTool();
    this.closed = true;
    this.player.close();
    document.removeEventListener("keydown", this.onKey);
  }

  #build() {
    const { player } = this;
    this.about = el("p", { class: "about" });
    this.undoButton = iconButton(t("undo"), "undo", { onclick: () => this.steps.undo() });
    this.redoButton = iconButton(t("redo"), "redo", { onclick: () => this.steps.redo() });
    const header = el("header", { class: "bar" },
      iconButton(t("back"), "back", { onclick: () => this.onBack(), class: "back" }),
      el("div", { class: "title" }, el("h1", {}, this.clip.name), this.about), el("div", { class: "spacer" }),
      this.undoButton, this.redoButton);

    this.notice = el("p", { class: "notice", hidden: true, role: "status" });
    this.stage = el("section", { class: "stage", "aria-label": t("stage") }, player.frame, this.notice);
    new ResizeObserver(() => this.fitFrame()).observe(this.stage);
    player.frame.addEventListener("click", () => this.tool !== "crop" && player.toggle());

    this.playButton = iconButton(t("play"), "play", { onclick: () => player.toggle(), class: "play" });
    this.time = el("output", { class: "time" });
    this.selected = el("output", { class: "selected" });
    const transport = el("div", { class: "transport" },
      iconButton(t("toStart"), "start", { onclick: () => this.jump(0) }),
      iconButton(t("pictureBack"), "stepBack", { onclick: () => player.step(-1) }),
      this.playButton,
      iconButton(t("pictureOn"), "stepOn", { onclick: () => player.step(1) }),
      iconButton(t("toEnd"), "end", { onclick: () => this.jump(Infinity) }),
      this.time, el("div", { class: "spacer" }), this.selected);

    this.toolButtons = Object.fromEntries(Object.keys(tools).map((name) => [name, button(t(name), {
      class: "tool", "aria-pressed": "false", onclick: (event) => this.#toggleTool(event, name),
    }, name)]));
    this.form = el("div", { class: "form", hidden: true });
    this.plan = el("div", { class: "plan", "aria-live": "polite" });
    this.nameInput = el("input", { type: "text", value: `${this.clip.name.replace(/\.[^.]*$/, "")}-edited`, spellcheck: "false" });
    this.makeButton = button(t("make"), { class: "primary", onclick: () => this.make() });
    header.append(this.makeButton);
    this.making = el("section", {}, el("h2", {}, t("plan")), this.plan, field(t("name"), this.nameInput));
    const side = el("aside", { class: "side" },
      el("section", { "aria-label": t("tools") }, el("div", { class: "tools" }, Object.values(this.toolButtons)), this.form),
      el("section", {}, el("h2", {}, t("steps")), this.steps.element), this.making, this.results.element, this.#keys());
    this.element = el("main", { class: "editor" }, header,
      el("div", { class: "work" }, this.stage, transport, this.timeline.element), side);

    player.addEventListener("time", () => this.#showTime());
    player.addEventListener("state", () => this.#showState());
    player.addEventListener("preparing", (event) => this.#showPreparing(event.detail));
    this.timeline.addEventListener("selection", () => this.#showSelection());
    this.onKey = (event) => this.#key(event);
    document.addEventListener("keydown", this.onKey);
  }

  #keys() {
    return el("details", { class: "keys" }, el("summary", {}, t("keys")),
      el("dl", {}, t("keyList").flatMap(([key, what]) => [el("dt", {}, key.split(" ").map((k) => el("kbd", {}, k))), el("dd", {}, what)])));
  }

  /** The frame has the view's shape, as large as the stage lets it be. */
  fitFrame() {
    if (!this.view) return;
    const [w, h] = this.view.size;
    const edge = 24;  // where grips stand out
    const scale = Math.min((this.stage.clientWidth - edge) / w, (this.stage.clientHeight - edge) / h);
    this.player.frame.style.width = `${Math.round(w * scale)}px`;
    this.player.frame.style.height = `${Math.round(h * scale)}px`;
  }

  /** Shows the clip after its steps; while one of them is changed, as it is before that one. */
  #look() {
    const end = this.changing < 0 ? undefined : this.changing;
    this.view = viewOf(this.player.sources, this.steps.active(end));
    this.fitFrame();
    this.player.setView(this.view);
    this.timeline.setView(this.view);
    this.timeline.showPieces(this.steps.pieces(end), (i, at) => this.steps.movePiece(i, at));
    this.steps.mark(this.changing);
  }

  /** Everything that follows from the steps. */
  update() {
    const tool = this.tool;
    this.#endTool();
    this.#look();
    this.undoButton.disabled = !this.steps.canUndo;
    this.redoButton.disabled = !this.steps.canRedo;
    this.making.hidden = this.makeButton.hidden = this.steps.active().length === 0;
    if (tool === "narrate") this.openTool(tool);
    clearTimeout(this.planning);
    if (this.making.hidden) return;
    this.planning = setTimeout(() => this.#showPlan(), planDelay);
  }

  job(steps = this.steps.active(), out = this.nameInput.value.trim()) {
    const [first, ...others] = steps;
    if (first?.step !== "join") return { in: this.clip.name, steps, out };
    return { in: [this.clip.name, ...first.in], steps: [{ step: "join" }, ...others], out };
  }

  async #showPlan() {
    const turn = (this.planTurn = (this.planTurn ?? 0) + 1);
    this.plan.setAttribute("aria-busy", "true");
    try {
      const told = await api.planOf(this.job());
      if (turn === this.planTurn) this.plan.replaceChildren(...linesOf(told.plan), commandOf(told.command));
      this.makeButton.disabled = false;
    } catch (error) {
      if (turn === this.planTurn) this.plan.replaceChildren(el("p", { class: "fault" }, error.message));
      this.makeButton.disabled = true;
    }
    this.plan.removeAttribute("aria-busy");
  }

  make() {
    this.results.run(this.job(), this.nameInput.value.trim());
  }

  #toggleTool(event, name, index) {
    if (!this.view) return;
    if (this.tool === name && (index ?? this.changing) === this.changing) return this.closeTool();
    this.openTool(name, index);
    if (event.detail === 0) this.form.querySelector("button, input, select")?.focus();  // by keyboard
  }

  /** Opens a tool for a new step, or for the one at `index`, which it then changes. */
  openTool(name, index = this.steps.placeOf(name)) {
    this.closeTool();
    this.player.pause();
    this.tool = name;
    this.changing = name === "narrate" ? -1 : index;  // what narration changes is seen and heard at once
    if (this.changing >= 0) this.#look();
    this.toolButtons[name].setAttribute("aria-pressed", "true");
    this.toolEnd = tools[name](this, this.form, this.steps.items[index]?.step);
    this.form.hidden = false;
    if (index >= 0) this.form.scrollIntoView({ block: "nearest" });
  }

  #endTool() {
    if (!this.tool) return;
    this.toolButtons[this.tool].setAttribute("aria-pressed", "false");
    this.tool = null;
    this.changing = -1;
    this.toolEnd?.();
    this.toolEnd = null;
    this.form.hidden = true;
    this.form.replaceChildren();
  }

  /** Leaves all as it is. */
  closeTool() {
    const index = this.changing;
    const isByKeys = document.activeElement.matches(":focus-visible");
    this.#endTool();
    if (index < 0) return;
    this.#look();
    if (isByKeys) this.steps.focus(index);
  }

  /** What a tool has made: a new step, or one in the place of that which it changes. */
  apply(step) {
    const index = this.changing;
    const isByKeys = document.activeElement.matches(":focus-visible");
    if (step.step === "trim") this.player.position = 0;
    this.steps.put(step, index);
    if (isByKeys) this.steps.focus(index);
    say(nameOfStep(step));
  }

  jump(moment) {
    this.player.pause();
    this.player.seek(moment);
  }

  #showTime() {
    const { player } = this;
    const digits = player.length < 3600 ? 2 : 0;
    this.time.replaceChildren(el("strong", {}, clock(player.position, digits)), ` / ${clock(player.length, digits)} `,
      el("span", { class: "number" }, t("picture", { n: player.pictureNumber })));
  }

  #showState() {
    const key = this.player.isPlaying ? "pause" : "play";
    this.playButton.replaceChildren(icon(key));
    this.playButton.setAttribute("aria-label", t(key));
    this.playButton.title = t(key);
  }

  #showSelection() {
    const { from, to } = this.timeline.selection;
    const values = { from: clock(from), to: clock(to), length: span(to - from) };
    this.selected.textContent = this.timeline.isWhole ? t("wholeSelected", values) : t("selected", values);
    this.onSelection?.();
  }

  #showPreparing(how) {
    this.notice.hidden = how === null;
    if (how) this.notice.textContent = how.failed ? t("preparingFailed") : t("preparing", { percent: Math.round(100 * how.share) });
  }

  #key(event) {
    if (event.target.closest?.(event.key === "Escape" ? "dialog" : "input, select, textarea, dialog, summary")) return;
    const { player } = this;
    const isCommand = event.ctrlKey || event.metaKey;
    const onButton = event.target.closest?.("button, a");
    const actions = {
      " ": () => !onButton && player.toggle(),
      ArrowLeft: () => (event.shiftKey ? this.jump(player.position - 1) : player.step(-1)),
      ArrowRight: () => (event.shiftKey ? this.jump(player.position + 1) : player.step(1)),
      Home: () => this.jump(0),
      End: () => this.jump(Infinity),
      i: () => this.timeline.mark(0),
      o: () => this.timeline.mark(1),
      Escape: () => this.closeTool(),
    };
    if (isCommand && event.key.toLowerCase() === "z") {
      event.preventDefault();
      if (event.shiftKey) this.steps.redo();
      else this.steps.undo();
    } else if (!isCommand && !event.altKey) {
      const act = actions[event.key] ?? actions[event.key.toLowerCase()];
      if (act && act() !== false) event.preventDefault();
    }
  }
}

/** A plan in words. */
function linesOf(plan) {
  const pictures = plan.tracks.find((track) => track.kind === "pictures");
  const length = span(plan.length.seconds);
  const first = pictures ? t("planLength", { length, w: pictures.width, h: pictures.height }) : t("planLengthOnly", { length });
  const lines = [el("p", { class: "lead" }, first + (plan.bytes ? ` · ${t("planBytes", { bytes: bytes(plan.bytes) })}` : ""))];
  const list = [];
  for (const track of plan.tracks) {
    const values = { n: track.pictures, encoded: track.encodedPictures, codec: codec(track.encoder) };
    if (track.kind === "pictures") {
      const isPartly = track.encodedPictures > 0 && track.encodedPictures < track.pictures;
      list.push(t(isPartly ? "planPartly" : track.encodedPictures ? "planEncoded" : "planCopied", values));
    } else if (track.kind === "sound") {
      list.push(t(track.copied ? "planSoundCopied" : "planSoundEncoded", values));
    }
  }
  for (const lost of plan.leftOut) list.push(t("planLost", lost));
  list.push(...plan.remarks);
  return [...lines, el("ul", {}, list.map((line) => el("li", {}, line)))];
}

function commandOf(command) {
  const copy = button(t("copy"), { class: "small", onclick: async () => {
    await navigator.clipboard.writeText(command);
    copy.lastChild.textContent = t("copied");
    say(t("copied"));
  } }, "copy");
  return el("details", { class: "command" }, el("summary", {}, t("command")), el("code", { tabindex: "0" }, command), copy);
}
