// The page: the clips of the folder, and the one that is opened. The address behind "#" names it.

import * as api from "./api.js";
import { button, el, loadPicture, say } from "./dom.js";
import { Editor, kindOf } from "./editor.js";
import { bytes, clock, t } from "./texts.js";

const said = el("div", { id: "said", class: "unseen", "aria-live": "polite" });
const place = el("div", { id: "place" });
document.body.append(place, said);

let editor = null;
let library = null;

class Library {
  constructor() {
    this.cards = new Map();
    this.grid = el("ul", { class: "clips" });
    this.counted = el("p", { class: "about" });
    this.search = el("input", { type: "search", placeholder: t("search"), "aria-label": t("search"), oninput: () => this.#filter() });
    this.picker = el("input", { type: "file", accept: "video/*,.mkv,.mts", multiple: true, hidden: true, "aria-label": t("addClip"),
                                onchange: () => this.take(this.picker.files) });
    this.empty = el("div", { class: "empty", hidden: true });
    this.element = el("main", { class: "library" },
      el("header", { class: "bar" }, el("img", { src: "/icon.svg", alt: "", class: "logo" }),
        el("div", { class: "title" }, el("h1", {}, t("clips")), this.counted), el("div", { class: "spacer" }), this.search,
        button(t("addClip"), { onclick: () => this.picker.click() }, "add"), this.picker),
      this.empty, this.grid);
    // What a clip shows is asked for as it scrolls in.
    this.seen = new IntersectionObserver((entries) => {
      for (const { isIntersecting, target } of entries) {
        if (!isIntersecting) continue;
        this.seen.unobserve(target);
        this.#fill(target);
      }
    }, { rootMargin: "300px" });
  }

  async load() {
    const { folder, clips } = await api.listClips();
    this.clips = clips;
    this.counted.textContent = `${t("count", { n: clips.length })} · ${folder}`;
    this.empty.hidden = clips.length > 0;
    this.empty.replaceChildren(el("h2", {}, t("noClips")), el("p", {}, t("noClipsHint", { folder })));
    this.grid.replaceChildren(...clips.map((clip) => this.#card(clip)));
    this.#filter();
  }

  #card(clip) {
    const key = `${clip.name} ${clip.changed}`;
    if (this.cards.has(key)) return this.cards.get(key);
    const card = el("li", {}, el("a", { href: `#${encodeURIComponent(clip.name)}`, draggable: "false" }, el("div", { class: "shot" }),
      el("div", { class: "words" }, el("strong", { title: clip.name }, clip.name), el("span", { class: "soft" }, bytes(clip.bytes)))));
    card.clip = clip;
    this.cards.set(key, card);
    this.seen.observe(card);
    return card;
  }

  async #fill(card) {
    const { clip } = card;
    const words = card.querySelector(".soft");
    const shot = card.querySelector(".shot");
    try {
      const facts = await api.factsOf(clip);
      words.textContent = `${kindOf(facts)} · ${bytes(clip.bytes)}`;
      shot.append(el("span", { class: "length" }, clock(facts.seconds, 0)));
      if (!(facts.size[0] > 0)) return;
      const image = el("img", { alt: "" });
      shot.prepend(image);
      loadPicture(image, api.pictureUrl(clip, Math.min(1, facts.seconds / 3)));
    } catch (error) {
      card.classList.add("broken");
      words.textContent = t("unreadable");
      words.title = error.message;
    }
  }

  #filter() {
    const wanted = this.search.value.toLowerCase();
    for (const card of this.grid.children) card.hidden = !card.clip.name.toLowerCase().includes(wanted);
  }

  async take(files) {
    for (const file of files) {
      say(t("uploading", { name: file.name }));
      notify(t("uploading", { name: file.name }));
      try {
        await api.sendClip(file);
        notify("");
      } catch (error) {
        notify(t("uploadFailed", { name: file.name, why: error.message }));
      }
    }
    await this.load();
  }
}

const toast = el("p", { class: "toast", hidden: true, role: "status" });
document.body.append(toast);
let hiding = 0;
function notify(text) {
  toast.textContent = text;
  toast.hidden = !text;
  clearTimeout(hiding);
  hiding = setTimeout(() => (toast.hidden = true), 8000);
}

let turn = 0;
async function show() {
  const mine = ++turn;
  const name = decodeURIComponent(location.hash.slice(1));
  editor?.close();
  editor = null;
  library ??= new Library();
  try {
    await library.load();
    if (mine !== turn) return;
    const entry = library.clips.find((clip) => clip.name === name);
    document.title = entry ? `${name} – ${t("app")}` : t("app");
    if (!entry) {
      place.replaceChildren(library.element);
      return;
    }
    editor = new Editor(entry, () => (location.hash = ""));
    place.replaceChildren(editor.element);
    await editor.load();
  } catch (error) {
    if (mine !== turn) return;
    notify(error.message);
    if (editor) location.hash = "";
  }
}

let dragged = 0;
const isFiles = (event) => event.dataTransfer?.types.includes("Files");
const drop = el("div", { class: "drop", hidden: true }, el("p", {}, t("dropHere")));
document.body.append(drop);
addEventListener("dragenter", (event) => isFiles(event) && (drop.hidden = ++dragged === 0));
addEventListener("dragleave", (event) => isFiles(event) && (drop.hidden = --dragged === 0));
addEventListener("dragover", (event) => isFiles(event) && event.preventDefault());
addEventListener("drop", (event) => {
  if (!isFiles(event)) return;
  event.preventDefault();
  dragged = 0;
  drop.hidden = true;
  const { files } = event.dataTransfer;
  library.take(files);
  if (editor) location.hash = "";
});
addEventListener("hashchange", show);
addEventListener("made", () => !editor && library.load().catch(() => {}));
show();
