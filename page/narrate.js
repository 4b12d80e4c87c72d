// Narration: records the microphone while the clip plays, and sets where each piece lies and how loud all are.

import * as api from "./api.js";
import { button, el, icon, iconButton, say } from "./dom.js";
import { clock, t } from "./texts.js";

const formats = ["audio/mp4;codecs=opus", "audio/webm;codecs=opus", "audio/ogg;codecs=opus"];
const mostSeconds = 1800;
const runUp = 0.1;  // seconds that a clip plays before the recorder starts

const secondsOf = (recording) => (performance.now() - recording.began) / 1000;
const middleOf = (numbers) => Math.max(0, numbers.sort((a, b) => a - b)[numbers.length >> 1]);

export function narrateTool(editor, form, narration) {
  const { player, steps } = editor;
  let recording = null;
  const fault = el("p", { class: "fault", hidden: true });
  const recorder = button(t("record"), { class: "record", onclick: () => (recording ? stop() : record()) }, "record");

  async function record() {
    fault.hidden = true;
    let stream;
    try {
      stream = await navigator.mediaDevices.getUserMedia({ audio: true });
    } catch (error) {
      fault.textContent = t("noMicrophone", { why: error.message });
      fault.hidden = false;
      return;
    }
    const mimeType = formats.find((type) => MediaRecorder.isTypeSupported(type));
    const parts = [];
    const places = [];
    recording = new MediaRecorder(stream, { mimeType, audioBitsPerSecond: 128_000 });
    const end = () => {
      player.removeEventListener("time", follow);
      for (const track of stream.getTracks()) track.stop();
      recording = null;
      player.pause();
      show();
    };
    recording.addEventListener("dataavailable", (event) => parts.push(event.data));
    recording.addEventListener("stop", () => {
      const seconds = secondsOf(recording);
      end();
      keep(new Blob(parts, { type: mimeType.split(";")[0] }), middleOf(places), seconds);
    });
    player.play();
    const from = player.position;
    // What is said belongs to the picture that is seen then, and a clip begins to play unevenly: the recorder starts when the
    // clip runs, and lies where most of the moments say that both have run.
    function follow() {
      if (!player.isPlaying) {
        if (!recording.began) end();
      } else if (recording.began) {
        places.push(player.position - secondsOf(recording));
      } else if (player.position > from + runUp) {
        recording.began = performance.now();
        places.push(player.position);
        recording.start();
        count();
      }
    }
    player.addEventListener("time", follow);
    show();
    follow();
  }

  function stop() {
    if (recording.began) recording.stop();
    else player.pause();
  }

  function count() {
    if (!recording) return;
    const seconds = secondsOf(recording);
    recorder.lastChild.textContent = t("stopRecording", { time: clock(seconds, 0) });
    if (seconds > mostSeconds) stop();
    else setTimeout(count, 200);
  }

  async function keep(blob, at, seconds) {
    try {
      const { name } = await api.sendRecording(blob);
      const told = structuredClone(steps.items[steps.placeOf("narrate")]?.step ?? { step: "narrate", base: 1, piece: [] });
      told.piece.push({ file: name, at, seconds, volume: 1, url: URL.createObjectURL(blob) });
      steps.put(told);
    } catch (error) {
      fault.textContent = error.message;
      fault.hidden = false;
    }
  }

  function show() {
    recorder.classList.toggle("on", Boolean(recording));
    recorder.replaceChildren(icon(recording ? "stop" : "record"), el("span", {}, recording ? t("stopRecording", { time: clock(0, 0) }) : t("record")));
    if (recording) say(t("recordingNow", { time: clock(0, 0) }));
  }

  const change = (make) => {
    const told = structuredClone(narration);
    const focused = [...form.querySelectorAll("input")].indexOf(document.activeElement);
    make(told);
    if (told.piece.length) steps.put(told);
    else steps.change((items) => items.filter((item) => item.step.step !== "narrate"));
    form.querySelectorAll("input")[focused]?.focus();  // the form is a new one
  };

  const slider = (value, label, onChange) => {
    const told = el("output", {}, t("volume", { percent: Math.round(100 * value) }));
    const input = el("input", { type: "range", min: "0", max: "2", step: "0.05", value, "aria-label": label,
      oninput: () => (told.textContent = t("volume", { percent: Math.round(100 * Number(input.value)) })),
      onchange: () => onChange(Number(input.value)) });
    return [input, told];
  };
  form.append(el("p", {}, t("narrateHint")), el("div", { class: "row" }, recorder), fault);
  if (narration) {
    form.append(el("ul", { class: "pieces" },
      editor.view.segments.some(({ source }) => source.clip.hasSound) && el("li", {}, el("span", {}, t("ownSound")), slider(narration.base, t("ownVolume"), (v) => change((n) => (n.base = v)))),
      narration.piece.map((piece, i) => el("li", {}, el("span", {}, t("piece", { n: i + 1 })),
        slider(piece.volume, t("pieceVolume", { n: i + 1 }), (v) => change((n) => (n.piece[i].volume = v))),
        el("input", { type: "number", min: "0", step: "0.1", value: Number(piece.at.toFixed(2)), "aria-label": t("pieceStart", { n: i + 1 }),
                      onchange: (event) => change((n) => (n.piece[i].at = Math.max(0, Number(event.target.value)))) }),
        iconButton(t("removePiece", { n: i + 1 }), "close", { onclick: () => change((n) => n.piece.splice(i, 1)) })))));
  }
  const sounds = hear(editor, narration);
  return () => {
    if (recording) stop();
    sounds();
  };
}

/** Lets the pieces be heard while the clip plays; returns what ends that. */
function hear({ player }, narration) {
  if (!narration) return () => {};
  const sounds = narration.piece.map((piece) => piece.url && Object.assign(new Audio(piece.url), { volume: Math.min(1, piece.volume) }));
  const follow = () => narration.piece.forEach((piece, i) => {
    const sound = sounds[i];
    if (!sound) return;
    const inside = player.position - piece.at;
    const isHeard = player.isPlaying && inside >= 0 && inside < piece.seconds;
    if (isHeard && sound.paused) {
      sound.currentTime = inside;
      sound.play().catch(() => {});
    } else if (!isHeard) {
      sound.pause();
    }
  });
  player.video.volume = Math.min(1, narration.base);
  player.addEventListener("time", follow);
  player.addEventListener("state", follow);
  return () => {
    player.removeEventListener("time", follow);
    player.removeEventListener("state", follow);
    player.video.volume = 1;
    for (const sound of sounds) sound?.pause();
  };
}
