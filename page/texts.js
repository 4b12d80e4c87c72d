// All that people read, in one table. Another language is another table of the same keys.

const english = {
  app: "Clipworks",
  clips: "Clips",
  addClip: "Add a clip",
  noClips: "No clips here yet",
  noClipsHint: "Drop a clip onto this page, or put one into {folder}.",
  count: { one: "1 clip", other: "{n} clips" },
  search: "Search",
  dropHere: "Drop to add to the folder",
  uploading: "Adding {name} …",
  uploadFailed: "{name} could not be added: {why}",
  unreadable: "cannot be read",
  noSound: "no sound",
  noPictures: "sound only",
  gone: "The server has ended. Start “clipworks serve” again.",

  back: "All clips",
  undo: "Undo",
  redo: "Redo",
  play: "Play",
  pause: "Pause",
  toStart: "To the start",
  toEnd: "To the end",
  pictureBack: "One picture back",
  pictureOn: "One picture on",
  picture: "Picture {n}",
  stage: "The picture",
  timeline: "Timeline",
  position: "Position",
  selectionStart: "Start of the selection",
  selectionEnd: "End of the selection",
  selected: "{from} – {to}, {length} selected",
  wholeSelected: "All {length} selected",
  seconds: "{s} s",
  preparing: "Preparing a version that this browser can play … {percent} %",
  preparingFailed: "This browser cannot play it; pictures are shown instead.",

  tools: "Tools",
  trim: "Trim",
  speed: "Speed",
  crop: "Crop",
  rotate: "Rotate",
  loop: "Loop",
  join: "Join",
  reverse: "Reverse",
  compress: "Compress",
  narrate: "Narrate",
  photo: "Photo",

  apply: "Apply",
  cancel: "Cancel",
  close: "Close",
  from: "From",
  to: "To",
  trimHint: "Drag the two ends on the strip, or press I and O where it plays.",
  keepPart: "Keep this part",
  cutOut: "Cut it out",
  speedHint: "Changes the selected part. Its sound keeps its pitch.",
  speedOf: "Speed",
  speedTimes: "{x}×",
  lasts: "{before} become {after}",
  cropHint: "Drag the rectangle on the picture.",
  ratio: "Shape",
  free: "Free",
  rectX: "Left",
  rectY: "Top",
  rectW: "Width",
  rectH: "Height",
  cropArea: "Part of the picture that is kept. Arrow keys move it, with Shift they size it.",
  turnLeft: "Left",
  turnRight: "Right",
  turnHalf: "Half",
  loopHint: "Plays it several times in a row.",
  times: "Times",
  joinHint: "Choose the clip that is played behind this one. It is shown whole, in this one's shape.",
  compressHint: "Encodes it smaller: by a height, or by what the file must not pass.",
  preset: "Height",
  asItIs: "By the size",
  maxSize: "At most, MB",
  noLimit: "no limit",
  compare: "Compare five seconds",
  comparing: "Encoding five seconds … {percent} %",
  compareLine: "Line between before and after",
  before: "Before",
  after: "After",
  photoHint: "Saves the picture at {time}, with all steps but compression.",
  format: "Format",
  takePhoto: "Save the picture",

  narrateHint: "Speak while the clip plays. Drag the pieces on the strip.",
  record: "Record",
  stopRecording: "Stop, {time}",
  recordingNow: "Recording … {time}",
  noMicrophone: "The microphone cannot be used: {why}",
  ownSound: "The clip",
  ownVolume: "Volume of the clip's own sound",
  piece: "Piece {n}",
  pieceVolume: "Volume of piece {n}",
  pieceStart: "Start of piece {n}",
  removePiece: "Remove piece {n}",
  volume: "{percent} %",

  steps: "Steps",
  noSteps: "Nothing changed yet. Choose a tool.",
  stepOn: "Use this step: {step}",
  moveUp: "Move up: {step}",
  moveDown: "Move down: {step}",
  remove: "Remove: {step}",
  change: "Change this step",
  paused: "paused",
  stepTrim: "Keep {from} – {to}",
  theEnd: "the end",
  stepTrimMany: { one: "Keep 1 part", other: "Keep {n} parts" },
  stepSpeed: "{x}× from {from} to {to}",
  stepCrop: "Crop to {w} × {h}",
  stepRotate: { left: "Turn left", right: "Turn right", half: "Turn by half" },
  stepLoop: "Play {n} times",
  stepJoin: "Then {name}",
  stepReverse: "Play backwards",
  stepCompress: "Compress to {what}",
  stepCompressSize: "Compress to at most {what}",
  stepNarrate: { one: "Narrate, 1 piece", other: "Narrate, {n} pieces" },

  plan: "What will be done",
  planning: "Planning …",
  planLength: "{length}, {w} × {h} pixels",
  planLengthOnly: "{length}",
  planBytes: "about {bytes}",
  planCopied: { one: "1 picture, copied as it is coded", other: "{n} pictures, copied as they are coded" },
  planEncoded: { one: "1 picture, encoded as {codec}", other: "{n} pictures, encoded as {codec}" },
  planPartly: "{n} pictures: {encoded} encoded as {codec}, the others copied",
  planSoundCopied: "Sound copied as it is coded",
  planSoundEncoded: "Sound encoded as {codec}",
  planLost: "Left out: {what}. {why}",
  command: "The same as a command",
  copy: "Copy",
  copied: "Copied",
  name: "New file",
  make: "Make the clip",
  making: "Making {name}",
  waiting: "Waiting for its turn",
  percent: "{percent} %",
  left: "{time} left",
  jobFailed: "It failed: {why}",
  jobCancelled: "Cancelled. Nothing was left.",
  jobDone: "Done in {time}",
  source: "Before",
  result: "After",
  resultHint: "Drag it where you need it, or",
  download: "Download",
  edit: "Edit it further",
  open: "Open {name}",
  results: "Results",
  sizeChange: "{before} → {after}",
  // By the server's code, or the status of its answer.
  faults: {
    403: "This browser is no longer let in. Open the address that “clipworks serve” printed; start it anew for another one.",
    500: "The server met a fault of its own.",
    gone: "It is no longer there.",
    sourceGone: "A clip or a recording that the steps need is no longer there.",
    tooLarge: "It is too large.",
    noSpace: "There is no space left.",
    notWhole: "It did not come whole, or could not be kept.",
    clipName: "Its name is not that of a clip.",
    newName: "The new file needs a name without “/”, which does not begin with a dot.",
    manyRecordings: "There are too many recordings. Start “clipworks serve” again.",
    busy: "Too much waits to be done. Wait for some of it, or cancel it.",
    nothingTold: "Nothing can be told of this clip.",
    nothingMade: "Nothing was made.",
  },
  keys: "Keys",
  keyList: [
    ["Space", "play, pause"], ["← →", "one picture"], ["Shift ← →", "one second"], ["Home End", "start, end"],
    ["I O", "start and end of the selection"], ["Ctrl Z", "undo"], ["Ctrl Shift Z", "redo"], ["Esc", "close a tool"],
  ],
};

const table = english;

/** The text of a key; {names} in it are replaced. A text with a number has two forms. */
export function t(key, values = {}) {
  let text = table[key];
  if (text !== null && typeof text === "object" && !Array.isArray(text)) {
    text = values.form ? text[values.form] : values.n === 1 ? text.one : text.other;
  }
  if (typeof text !== "string") return text;
  return text.replace(/\{(\w+)\}/g, (_, name) => String(values[name] ?? ""));
}

/** 83.5 → "1:23.50" */
export function clock(seconds, digits = 2) {
  const scale = 10 ** digits;
  const all = Math.max(0, Math.round(seconds * scale)) / scale;
  const minutes = Math.floor(all / 60);
  const rest = (all - 60 * minutes).toFixed(digits).padStart(digits ? digits + 3 : 2, "0");
  const hours = Math.floor(minutes / 60);
  return hours ? `${hours}:${String(minutes % 60).padStart(2, "0")}:${rest}` : `${minutes}:${rest}`;
}

/** How long something lasts, for people: "4.2 s", "3:05". */
export function span(seconds) {
  return seconds < 60 ? t("seconds", { s: seconds < 10 ? seconds.toFixed(seconds < 1 ? 2 : 1) : Math.round(seconds) })
                      : clock(seconds, 0);
}

export function bytes(count) {
  if (count < 1e6) return `${Math.max(1, Math.round(count / 1e3))} kB`;
  return count < 1e9 ? `${(count / 1e6).toFixed(1)} MB` : `${(count / 1e9).toFixed(2)} GB`;
}

const codecs = { h264: "H.264", hevc: "HEVC", libx264: "H.264", libx265: "HEVC", aac: "AAC", prores: "ProRes" };
export function codec(name) {
  return codecs[name] ?? String(name).toUpperCase();
}
