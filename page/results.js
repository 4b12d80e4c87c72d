// What is being made and has been made: progress, cancel, and the result beside the source.

import * as api from "./api.js";
import { button, el, iconButton, icon, say } from "./dom.js";
import { bytes, span, t } from "./texts.js";

const all = new Map();

/** Those of a clip, which go on while another one is looked at. */
export function resultsOf(editor) {
  const key = `${editor.clip.name} ${editor.clip.changed}`;
  if (!all.has(key)) all.set(key, new Results());
  const results = all.get(key);
  results.editor = editor;
  return results;
}

class Results {
  constructor() {
    this.list = el("ul", { class: "results" });
    this.element = el("section", { hidden: true }, el("h2", {}, t("results")), this.list);
  }

  async run(job, name) {
    this.element.hidden = false;
    const bar = el("progress", { max: "1", value: 0, "aria-label": t("making", { name }) });
    const how = el("p", { class: "soft" }, t("waiting"));
    const title = el("strong", {}, name);
    const item = el("li", { class: "running" }, el("div", { class: "row" }, title), bar, how);
    this.list.prepend(item);
    item.scrollIntoView({ block: "nearest" });
    const fail = (text) => {
      item.className = "failed";
      item.replaceChildren(el("div", { class: "row" }, title, this.#dismiss(item)), el("p", { class: "fault" }, text));
      say(text);
    };
    try {
      const { job: number } = await api.start(job);
      title.after(el("div", { class: "spacer" }), button(t("cancel"), { class: "small", onclick: () => api.cancel(number) }));
      const state = await api.follow(number, (now) => this.#show(now, bar, how));
      if (state.state === "done") this.#done(item, number, state);
      else fail(state.state === "cancelled" ? t("jobCancelled") : t("jobFailed", { why: state.error }));
    } catch (error) {
      fail(t("jobFailed", { why: error.message }));
    }
  }

  #dismiss(item) {
    return iconButton(t("close"), "close", { onclick: () => item.remove() });
  }

  #show(now, bar, how) {
    if (now.state !== "running") return;
    bar.value = now.share;
    const percent = Math.floor(100 * now.share);
    how.textContent = t("percent", { percent }) + (now.left > 1 ? ` · ${t("left", { time: span(now.left) })}` : "");
    if (percent % 25 === 0 && percent) say(how.textContent);
  }

  #done(item, job, state) {
    const url = api.madeUrl(job);
    const isPicture = !state.name.endsWith(".mp4");
    const before = this.editor.clip.bytes;
    const link = el("a", { href: url, download: state.name, class: "download", draggable: "true", ondragstart: (event) =>
      event.dataTransfer.setData("DownloadURL", `${isPicture ? "image/jpeg" : "video/mp4"}:${state.name}:${location.origin}${url}`),
    }, icon("download"), el("span", {}, t("download")));
    const shown = isPicture ? el("img", { src: url, alt: state.name, draggable: "true" })
                            : el("video", { src: `${url}#t=0.001`, preload: "metadata", muted: true, tabindex: "-1" });
    const look = el("button", { type: "button", class: "look", "aria-label": t("open", { name: state.name }),
                                onclick: () => this.#open(state.name, url, isPicture) }, shown);
    const sizes = isPicture ? bytes(state.bytes) : t("sizeChange", { before: bytes(before), after: bytes(state.bytes) });
    item.className = "done";
    item.replaceChildren(look, el("div", {}, el("div", { class: "row" }, el("strong", { title: state.name }, state.name), this.#dismiss(item)),
      el("p", { class: "soft" }, `${sizes} · ${t("jobDone", { time: span(state.seconds) })}`),
      el("div", { class: "row" }, link, !isPicture && el("a", { href: `#${encodeURIComponent(state.name)}` }, t("edit")))));
    dispatchEvent(new Event("made"));
    say(`${state.name}: ${t("jobDone", { time: span(state.seconds) })}`);
  }

  /** Large, beside the source. */
  #open(name, url, isPicture) {
    this.editor.player.pause();
    const source = this.editor.player.url;
    const video = (src) => el("video", { src, controls: true, playsinline: true, loop: true });
    const sides = isPicture ? [el("figure", {}, el("img", { src: url, alt: name }))]
      : [source && el("figure", {}, el("figcaption", {}, t("source")), video(source)),
         el("figure", {}, el("figcaption", {}, t("result")), video(url))];
    const dialog = el("dialog", { class: "beside", "aria-label": name, onclose: () => dialog.remove() },
      el("div", { class: "row" }, el("h2", {}, name), el("div", { class: "spacer" }),
        iconButton(t("close"), "close", { onclick: () => dialog.close() })),
      el("div", { class: "sides" }, sides));
    document.body.append(dialog);
    dialog.showModal();
  }
}
