// Small helpers for making elements.

const paths = {
  play: "M8 5.5v13l11-6.5z",
  pause: "M7 5h3.5v14H7zM13.5 5H17v14h-3.5z",
  start: "M6 5h2v14H6zM19 5v14L9 12z",
  end: "M16 5h2v14h-2zM5 5v14l10-7z",
  stepBack: "M15.5 5.5v13L6.5 12z",
  stepOn: "M8.5 5.5v13l9-6.5z",
  undo: "M9 5 4 9.5 9 14v-3h5a4 4 0 0 1 0 8H9v2h5a6 6 0 0 0 0-12H9z",
  redo: "M15 5l5 4.5-5 4.5v-3h-5a4 4 0 0 0 0 8h5v2h-5a6 6 0 0 1 0-12h5z",
  back: "M14.5 5 7.5 12l7 7 1.5-1.5L10.500 12l5.500-5.500z",
  trim: "M4 4h5v2H6v12h3v2H4zM20 4h-5v2h3v12h-3v2h5zM9 11h6v2H9z",
  speed: "M12 5a9 9 0 0 0-7.500 14h15A9 9 0 0 0 12 5zm0 2a7 7 0 0 1 6.300 10H5.700A7 7 0 0 1 12 7zm4.500 2.500-5.200 3.600a1.500 1.500 0 1 0 1.600 1.600z",
  crop: "M7 2h2v13h13v2h-5v5h-2v-5H7V9H2V7h5zM11 7h6v6h-2V9h-4z",
  rotate: "M12 5V2l5 4-5 4V7a5.500 5.500 0 1 0 5.500 5.500h2A7.500 7.500 0 1 1 12 5z",
  loop: "M7 7h9V4l5 4-5 4V9H9v3H7zM17 17H8v3l-5-4 5-4v3h7v-3h2z",
  join: "M3 6h7v12H3zM14 6h7v12h-7zM10 11h4v2h-4zM5 8v8h3V8zM16 8v8h3V8z",
  reverse: "M11 6v12l-8-6zM21 6v12l-8-6z",
  compress: "M11 3h2v5h3l-4 4-4-4h3zM11 21h2v-5h3l-4-4-4 4h3zM4 11h3v2H4zM17 11h3v2h-3z",
  narrate: "M12 3a3 3 0 0 0-3 3v6a3 3 0 0 0 6 0V6a3 3 0 0 0-3-3zM6 11h2a4 4 0 0 0 8 0h2a6 6 0 0 1-5 5.900V21h-2v-4.100A6 6 0 0 1 6 11z",
  photo: "M9 4 7.500 6.500H4v13h16v-13h-3.500L15 4zm3 5a4 4 0 1 1 0 8 4 4 0 0 1 0-8zm0 2a2 2 0 1 0 0 4 2 2 0 0 0 0-4z",
  up: "M12 7l6 6-1.500 1.500L12 10l-4.500 4.500L6 13z",
  down: "M12 17l-6-6 1.500-1.500L12 14l4.500-4.500L18 11z",
  close: "M6.500 5 12 10.500 17.500 5 19 6.500 13.500 12l5.500 5.500-1.500 1.500L12 13.500 6.500 19 5 17.500 10.500 12 5 6.500z",
  add: "M11 5h2v6h6v2h-6v6h-2v-6H5v-2h6z",
  copy: "M8 3h11v13h-2V5H8zM4 7h11v14H4zm2 2v10h7V9z",
  download: "M11 3h2v9h4l-5 5-5-5h4zM4 19h16v2H4z",
  record: "M12 6a6 6 0 1 1 0 12 6 6 0 0 1 0-12z",
  stop: "M6 6h12v12H6z",
};

export function icon(name) {
  const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  svg.setAttribute("viewBox", "0 0 24 24");
  svg.setAttribute("class", "icon");
  svg.setAttribute("aria-hidden", "true");
  const path = document.createElementNS("http://www.w3.org/2000/svg", "path");
  path.setAttribute("d", paths[name]);
  path.setAttribute("fill-rule", "evenodd");
  svg.append(path);
  return svg;
}

/** An element. `props` are attributes; those that begin with "on" are listeners, false and null leave one out. */
export function el(tag, props = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(props)) {
    if (value === false || value === null || value === undefined) continue;
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (name === "value" || name === "checked" || name === "disabled") element[name] = value;
    else element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

export function button(label, props, iconName) {
  return el("button", { type: "button", ...props }, iconName && icon(iconName), el("span", {}, label));
}

export function iconButton(label, iconName, props) {
  return el("button", { type: "button", "aria-label": label, title: label, ...props,
                        class: `quiet ${props.class ?? ""}` }, icon(iconName));
}

let fields = 0;
/** A label above an input. */
export function field(label, input, props = {}) {
  input.id ||= `field-${++fields}`;
  return el("div", { class: "field", ...props }, el("label", { for: input.id }, label), input);
}

/** Says something to those who hear the page. */
export function say(text) {
  const place = document.getElementById("said");
  if (place && place.textContent !== text) place.textContent = text;
}

/** Follows a pointer from its press on `element` until it is let go. */
export function onDrag(element, start) {
  element.addEventListener("pointerdown", (event) => {
    if (event.button !== 0) return;
    const move = start(event);
    if (!move) return;
    event.preventDefault();
    element.setPointerCapture(event.pointerId);
    const follow = (moved) => move(moved, false);
    const end = (moved) => {
      element.removeEventListener("pointermove", follow);
      element.removeEventListener("pointerup", end);
      element.removeEventListener("pointercancel", end);
      move(moved, true);
    };
    element.addEventListener("pointermove", follow);
    element.addEventListener("pointerup", end);
    element.addEventListener("pointercancel", end);
  });
}

/** Loads pictures a few at a time, so that other requests are not kept waiting; those that have left the page are left out. */
const pictures = { waiting: [], loading: 0 };
export function loadPicture(image, url) {
  pictures.waiting.push({ image, url });
  queueMicrotask(loadNext);
}
function loadNext() {
  while (pictures.loading < 3 && pictures.waiting.length) {
    const { image, url } = pictures.waiting.shift();
    if (!image.isConnected) continue;
    ++pictures.loading;
    const next = () => {
      --pictures.loading;
      loadNext();
    };
    image.addEventListener("load", next, { once: true });
    image.addEventListener("error", next, { once: true });
    image.src = url;
  }
}

export const clamp = (value, least, most) => Math.min(Math.max(value, least), most);
