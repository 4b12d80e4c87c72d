// Five seconds before and after compression, one over the other, with a line between them to drag.

import * as api from "./api.js";
import { clamp, el, onDrag, say } from "./dom.js";
import { t } from "./texts.js";
import { typedStart } from "./view.js";

const seconds = 5;

/** `start(step)` has both made and shows them over the picture; `end()` takes them away. */
export function compareTool(editor, starter) {
  let overlay = null;
  let jobs = [];
  let turn = 0;

  function end() {
    ++turn;
    for (const job of jobs) api.cancel(job).catch(() => {});
    jobs = [];
    overlay?.remove();
    overlay = null;
    starter.lastChild.textContent = t("compare");
  }

  async function made(steps, onShare) {
    const { job } = await api.start({ ...editor.job(steps, "compared"), temporary: true, codec: "h264" });
    jobs.push(job);
    const state = await api.follow(job, (now) => onShare(now.share));
    if (state.state !== "done") throw new Error(state.error ?? t("jobCancelled"));
    return api.madeUrl(job);
  }

  async function start(step) {
    end();
    const mine = ++turn;
    const { player } = editor;
    player.pause();
    const from = clamp(player.position, 0, Math.max(0, player.length - seconds));
    const part = { step: "trim", from: typedStart(from), to: String(Math.min(player.length, from + seconds).toFixed(6)) };
    const steps = [...editor.steps.active().filter((other) => other.step !== "compress"), part];
    const share = [0, 0];
    const show = () => mine === turn && (starter.lastChild.textContent = t("comparing", { percent: Math.round(50 * (share[0] + share[1])) }));
    const report = (i) => (value) => {
      share[i] = value;
      show();
    };
    show();
    // What is before must be seen, too: where the browser cannot play the clip, at a high quality of its own.
    const plain = player.isDirect ? steps : [...steps, { step: "compress", preset: "1080p", bitrate: 0 }];
    const sized = step["max-size"] && player.length > seconds
      ? { ...step, "max-size": String(Math.round((Number(step["max-size"]) * seconds) / player.length)) } : step;
    try {
      const [before, after] = await Promise.all([made(plain, report(0)), made([...steps, sized], report(1))]);
      if (mine === turn) showBoth(before, after);
    } catch (error) {
      if (mine === turn) say(t("jobFailed", { why: error.message }));
    }
    if (mine === turn) starter.lastChild.textContent = t("compare");
  }

  function showBoth(before, after) {
    const videos = [after, before].map((src) => el("video", { src, loop: true, playsinline: true, muted: src === before, autoplay: true, tabindex: "-1" }));
    const line = el("div", { class: "line", role: "slider", tabindex: "0", "aria-label": t("compareLine"), "aria-valuemin": "0", "aria-valuemax": "100" });
    overlay = el("div", { class: "compare" }, videos, line, el("span", { class: "tag left" }, t("before")), el("span", { class: "tag right" }, t("after")));
    const put = (percent) => {
      percent = clamp(percent, 0, 100);
      line.style.left = `${percent}%`;
      videos[1].style.clipPath = `inset(0 ${100 - percent}% 0 0)`;
      line.setAttribute("aria-valuenow", Math.round(percent));
    };
    const follow = (event) => {
      const box = overlay.getBoundingClientRect();
      put((100 * (event.clientX - box.left)) / box.width);
    };
    onDrag(overlay, (event) => {
      follow(event);
      return follow;
    });
    line.addEventListener("keydown", (event) => {
      const step = { ArrowLeft: -2, ArrowRight: 2 }[event.key];
      if (!step) return;
      event.stopPropagation();
      put(Number(line.getAttribute("aria-valuenow")) + step);
    });
    overlay.addEventListener("click", (event) => event.stopPropagation());
    // Both show the same moment.
    videos[0].addEventListener("timeupdate", () => {
      if (Math.abs(videos[1].currentTime - videos[0].currentTime) > 0.05) videos[1].currentTime = videos[0].currentTime;
    });
    put(50);
    editor.player.frame.append(overlay);
    line.focus();
  }

  return { start, end };
}
