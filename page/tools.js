// The tools: each fills the form below the tools, with the values of the step that it is to change, if there is one, and may
// return what is to be done when it is closed.

import * as api from "./api.js";
import { compareTool } from "./compare.js";
import { Cropper } from "./cropper.js";
import { button, clamp, el, field, loadPicture } from "./dom.js";
import { narrateTool } from "./narrate.js";
import { clock, span, t } from "./texts.js";
import { typedEnd, typedStart } from "./view.js";

const number = (value, props = {}) => el("input", { type: "number", step: "any", value, ...props });
const chips = (label, options, onPick, picked) => {
  const group = el("div", { class: "chips", role: "group", "aria-label": label });
  for (const [text, value] of options) {
    group.append(el("button", { type: "button", "aria-pressed": String(value === picked), onclick: (event) => {
      for (const other of group.children) other.setAttribute("aria-pressed", String(other === event.currentTarget));
      onPick(value);
    } }, text));
  }
  return group;
};

/** As far as it lies on the strip. */
function select({ timeline }, from, to) {
  const [a, b] = [from, to].map((moment) => clamp(Number(moment), 0, timeline.length));
  if (a < b) timeline.select(a, b);
}

/** The part that was kept or cut out by a trim. */
function partOf({ from = 0, to = Infinity, keep }) {
  if (!keep) return [from, to];
  const parts = keep.map((part) => part.split("-"));
  return [parts.find(([start]) => start === "0")?.[1] ?? 0, parts.find(([start]) => start !== "0")?.[0] ?? Infinity];
}

/** From and to, bound to the selection on the strip. */
function rangeFields(editor, onChange) {
  const { timeline } = editor;
  const from = number("", { min: "0" });
  const to = number("", { min: "0" });
  const show = () => {
    if (document.activeElement !== from) from.value = Number(timeline.selection.from.toFixed(3));
    if (document.activeElement !== to) to.value = Number(timeline.selection.to.toFixed(3));
    onChange?.();
  };
  const take = () => select(editor, from.value, to.value);
  from.addEventListener("change", take);
  to.addEventListener("change", take);
  editor.onSelection = show;
  show();
  return el("div", { class: "row" }, field(t("from"), from), field(t("to"), to));
}

const selected = ({ timeline }) => ({ from: typedStart(timeline.selection.from), to: typedEnd(timeline.selection.to) });
/** The same without an end that is the clip's own. */
const kept = ({ timeline }) => ({
  ...(timeline.selection.from > 0 && { from: typedStart(timeline.selection.from) }),
  ...(timeline.selection.to < timeline.length && { to: typedEnd(timeline.selection.to) }),
});

export const tools = {
  trim(editor, form, step) {
    const { timeline } = editor;
    if (step) select(editor, ...partOf(step));
    const cut = button(t("cutOut"), { onclick: () => {
      const { from, to } = timeline.selection;
      const keep = [];
      if (from > 0) keep.push(`0-${typedEnd(from)}`);
      if (to < timeline.length) keep.push(`${typedStart(to)}-${typedEnd(timeline.length)}`);
      editor.apply({ step: "trim", keep });
    } });
    const keep = button(t("keepPart"), { class: "primary", onclick: () => editor.apply({ step: "trim", ...kept(editor) }) });
    const fields = rangeFields(editor, () => (keep.disabled = cut.disabled = timeline.isWhole));
    form.append(el("p", {}, t("trimHint")), fields, el("div", { class: "row end" }, cut, keep));
    return () => (editor.onSelection = null);
  },

  speed(editor, form, step) {
    const speed = number(step ? Number((1 / step.ratio).toFixed(4)) : 0.5, { min: "0.1", max: "16", step: "0.05" });
    if (step) select(editor, step.from, step.to);
    const after = el("p", { class: "soft" });
    const show = () => {
      const { from, to } = editor.timeline.selection;
      after.textContent = t("lasts", { before: span(to - from), after: span((to - from) / Number(speed.value)) });
    };
    speed.addEventListener("input", show);
    const options = [["¼×", 0.25], ["½×", 0.5], ["1½×", 1.5], ["2×", 2], ["4×", 4]];
    const apply = button(t("apply"), { class: "primary", onclick: () => {
      const ratio = Number((1 / clamp(Number(speed.value), 0.05, 20)).toFixed(6));
      editor.apply({ step: "speed", ...selected(editor), ratio });
    } });
    form.append(el("p", {}, t("speedHint")), chips(t("speedOf"), options, (x) => {
      speed.value = x;
      show();
    }, Number(speed.value)), rangeFields(editor, show), el("div", { class: "row end" }, field(t("speedOf"), speed), after, apply));
    return () => (editor.onSelection = null);
  },

  crop(editor, form, step) {
    const cropper = new Cropper(editor.player.frame, editor.view.size);
    const inputs = ["x", "y", "w", "h"].map((side) => number("", { min: "0", step: "1", onchange: () =>
      cropper.set({ ...cropper.rect, [side]: Number(inputs["xywh".indexOf(side)].value) }) }));
    const show = () => ["x", "y", "w", "h"].forEach((side, i) => (inputs[i].value = cropper.rect[side]));
    cropper.addEventListener("change", show);
    show();
    if (step) cropper.set(Object.fromEntries(step.rect.split(",").map((side, i) => ["xywh"[i], Number(side)])));
    const ratios = [[t("free"), 0], ["1:1", 1], ["4:5", 4 / 5], ["9:16", 9 / 16], ["16:9", 16 / 9]];
    form.append(el("p", {}, t("cropHint")), chips(t("ratio"), ratios, (ratio) => cropper.shape(ratio)),
      el("div", { class: "row" }, ["rectX", "rectY", "rectW", "rectH"].map((key, i) => field(t(key), inputs[i]))),
      el("div", { class: "row end" }, button(t("apply"), { class: "primary", onclick: () => {
        const { x, y, w, h } = cropper.rect;
        editor.apply({ step: "crop", rect: `${x},${y},${w},${h}` });
      } })));
    return () => cropper.remove();
  },

  rotate(editor, form, step) {
    form.append(el("div", { class: "row" }, [["turnLeft", "left"], ["turnRight", "right"], ["turnHalf", "half"]].map(([key, by]) =>
      button(t(key), { "aria-pressed": step && String(step.by === by), onclick: () => {
        editor.apply({ step: "rotate", by });
        if (!step) editor.openTool("rotate");
      } }))));
  },

  loop(editor, form, step) {
    const times = number(step?.count ?? 2, { min: "2", max: "100", step: "1" });
    form.append(el("p", {}, t("loopHint")), el("div", { class: "row end" }, field(t("times"), times),
      button(t("apply"), { class: "primary", onclick: () =>
        editor.apply({ step: "loop", count: clamp(Math.round(Number(times.value) || 2), 2, 100) }) })));
  },

  join(editor, form, step) {
    const list = el("ul", { class: "pick" });
    const fault = el("p", { class: "fault", hidden: true });
    const tell = ({ message }) => {
      fault.textContent = message;
      fault.hidden = false;
    };
    const show = async ({ target: choice }) => {
      const facts = await api.factsOf(choice.clip).catch(() => null);
      choice.disabled = !(facts?.size[0] > 0 && editor.view.size[0] > 0);  // both need pictures
      if (!choice.disabled) loadPicture(choice.querySelector("img"), api.pictureUrl(choice.clip, Math.min(1, facts.seconds / 3)));
    };
    const seen = new IntersectionObserver((entries) => entries.filter((entry) => entry.isIntersecting).forEach((entry) => {
      seen.unobserve(entry.target);
      show(entry);
    }));
    const choose = async (clip) => {
      await editor.know(clip);
      if (list.isConnected) editor.apply({ step: "join", in: [clip.name] });
    };
    const choiceOf = (clip) => {
      const choice = el("button", { type: "button", "aria-pressed": String(Boolean(step?.in.includes(clip.name))),
                                    onclick: () => choose(clip).catch(tell) }, el("img", { alt: "" }), el("span", {}, clip.name));
      choice.clip = clip;
      seen.observe(choice);
      return el("li", {}, choice);
    };
    const search = el("input", { type: "search", placeholder: t("search"), "aria-label": t("search"), oninput: () => {
      for (const item of list.children) item.hidden = !item.textContent.toLowerCase().includes(search.value.toLowerCase());
    } });
    form.append(el("p", {}, t("joinHint")), search, list, fault);
    api.listClips().then(({ clips }) => list.replaceChildren(...clips.map(choiceOf))).catch(tell);
    return () => seen.disconnect();
  },

  reverse(editor) {
    queueMicrotask(() => editor.apply({ step: "reverse" }));
  },

  compress(editor, form, old) {
    const preset = el("select", {}, el("option", { value: "" }, t("asItIs")),
      ["144p", "360p", "480p", "540p", "720p", "1080p"].map((name) => el("option", { value: name }, name)));
    preset.value = old ? old.preset ?? "" : "480p";
    const size = number(old?.["max-size"] ? old["max-size"] / 1e6 : "", { min: "0.05", placeholder: t("noLimit") });
    const step = () => ({ step: "compress", ...(preset.value && { preset: preset.value }),
                          ...(size.value && { "max-size": String(Math.round(Number(size.value) * 1e6)) }) });
    const show = () => (apply.disabled = compare.disabled = !preset.value && !size.value);
    const apply = button(t("apply"), { class: "primary", onclick: () => editor.apply(step()) });
    const compare = button(t("compare"), { onclick: () => comparing.start(step()) });
    const comparing = compareTool(editor, compare);
    preset.addEventListener("change", show);
    size.addEventListener("input", show);
    form.append(el("p", {}, t("compressHint")), el("div", { class: "row" }, field(t("preset"), preset), field(t("maxSize"), size)),
      el("div", { class: "row end" }, compare, apply));
    return () => comparing.end();
  },

  narrate: narrateTool,

  photo(editor, form) {
    const { player } = editor;
    const hint = el("p", {});
    const show = () => (hint.textContent = t("photoHint", { time: clock(player.position) }));
    player.addEventListener("time", show);
    show();
    const format = el("select", {}, ["jpg", "png", "heic"].map((name) => el("option", { value: name }, name.toUpperCase())));
    form.append(hint, el("div", { class: "row end" }, field(t("format"), format), button(t("takePhoto"), { class: "primary", onclick: () => {
      const steps = editor.steps.active().filter((step) => step.step !== "compress" && step.step !== "narrate");
      const picture = { step: "frame", at: typedStart(player.position), format: format.value };
      const name = `${editor.clip.name.replace(/\.[^.]*$/, "")}-frame`;
      editor.results.run(editor.job([...steps, picture], name), `${name}.${format.value}`);
    } })));
    return () => player.removeEventListener("time", show);
  },
};
