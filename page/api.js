// What the server is asked for. Failures are Errors whose message is a sentence for people: the page's own for the server's
// code, or for the status of the answer; else the server's.

import { t } from "./texts.js";

const sentenceOf = ({ code, error }, status) => t("faults", { form: code ?? status }) ?? error;

async function answerOf(request) {
  let response;
  try {
    response = await request;
  } catch {
    throw new Error(t("gone"));
  }
  const answer = await response.json().catch(() => ({ error: response.statusText }));
  if (!response.ok || answer.error) throw new Error(sentenceOf(answer, response.status) ?? response.statusText);
  return answer;
}

const get = (path, values = {}) => answerOf(fetch(`${path}?${new URLSearchParams(values)}`));
const post = (path, message) => answerOf(fetch(path, {
  method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify(message),
}));

export const listClips = () => get("/api/clips");
const ofClip = (clip) => ({ name: clip.name, v: `${clip.changed}-${clip.bytes}` });
export const factsOf = (clip) => get("/api/facts", ofClip(clip));
export const timesOf = (clip) => get("/api/times", ofClip(clip));
export const peaksOf = (clip, count) => get("/api/peaks", { ...ofClip(clip), count });
export const planOf = (job) => post("/api/plan", job);
export const start = (job) => post("/api/start", job);
export const cancel = (job) => post("/api/cancel", { job });

export const clipUrl = (clip) => `/media/clip?${new URLSearchParams(ofClip(clip))}`;
export const madeUrl = (job) => `/media/made?${new URLSearchParams({ job })}`;
export const pictureUrl = (clip, at, size = "small") =>
  `/media/picture?${new URLSearchParams({ ...ofClip(clip), at: Math.max(0, at).toFixed(6), size })}`;

export const draftPictureUrl = (job, at) => `/media/picture?${new URLSearchParams({ job, at: at.toFixed(6) })}`;

export const sendRecording = (blob) => answerOf(fetch("/api/recording", {
  method: "POST", headers: { "Content-Type": blob.type }, body: blob,
}));
export const sendClip = (file) => answerOf(fetch(`/api/upload?${new URLSearchParams({ name: file.name })}`, {
  method: "POST", headers: { "Content-Type": "application/octet-stream" }, body: file,
}));

const pause = (ms) => new Promise((done) => setTimeout(done, ms));

/** Waits until a job is over; `onState` is told how far it is. */
export async function follow(job, onState = () => {}) {
  for (let wait = 60;; wait = Math.min(wait * 1.5, 400)) {
    const state = await get("/api/job", { job });
    onState(state);
    if (state.state !== "waiting" && state.state !== "running") return state;
    await pause(wait);
  }
}
