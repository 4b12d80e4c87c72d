// What a clip looks like after its steps, reckoned here so that it is seen at once: which moment of the clip is on screen
// when, and how its picture lies. What is made in the end is the program's, by the same steps.

/** The clip as it is: { seconds, size: [width, height] } in pixels as it is seen. */
function startOf(clip) {
  return { segments: [{ from: 0, to: clip.seconds, ratio: 1, backwards: false }], size: clip.size,
           matrix: [1, 0, 0, 1, 0, 0] };
}

const lengthOfSegment = (segment) => (segment.to - segment.from) * segment.ratio;
export const lengthOf = (view) => view.segments.reduce((sum, segment) => sum + lengthOfSegment(segment), 0);

/** The segments between two moments. */
function between(segments, from, to) {
  const kept = [];
  let start = 0;
  for (const segment of segments) {
    const length = lengthOfSegment(segment);
    const a = Math.max(from - start, 0) / segment.ratio;
    const b = Math.min(to - start, length) / segment.ratio;
    start += length;
    if (b - a < 1e-7) continue;
    kept.push(segment.backwards ? { ...segment, from: segment.to - b, to: segment.to - a }
                                : { ...segment, from: segment.from + a, to: segment.from + b });
  }
  return kept;
}

/** `outer` after `inner`; x' = a x + c y + e, y' = b x + d y + f. */
function after(outer, inner) {
  const [a, b, c, d, e, f] = outer;
  const [p, q, r, s, u, v] = inner;
  return [a * p + c * q, b * p + d * q, a * r + c * s, b * r + d * s, a * u + c * v + e, b * u + d * v + f];
}

const turns = {
  right: (w, h) => [[0, 1, -1, 0, h, 0], [h, w]],
  left: (w, h) => [[0, -1, 1, 0, 0, w], [h, w]],
  half: (w, h) => [[-1, 0, 0, -1, w, h], [w, h]],
};

const rules = {
  trim(view, step) {
    const parts = step.keep ? step.keep.map((part) => part.split("-").map(Number))
                            : [[Number(step.from ?? 0), Number(step.to ?? Infinity)]];
    return { ...view, segments: parts.flatMap(([from, to]) => between(view.segments, from, to)) };
  },
  speed(view, step) {
    const [from, to] = [Number(step.from), Number(step.to)];
    const changed = between(view.segments, from, to).map((s) => ({ ...s, ratio: s.ratio * Number(step.ratio) }));
    return { ...view, segments: [...between(view.segments, 0, from), ...changed, ...between(view.segments, to, Infinity)] };
  },
  loop(view, step) {
    return { ...view, segments: Array.from({ length: step.count }, () => view.segments).flat() };
  },
  reverse(view) {
    return { ...view, segments: view.segments.map((s) => ({ ...s, backwards: !s.backwards })).reverse() };
  },
  rotate(view, step) {
    const [turn, size] = turns[step.by](...view.size);
    return { ...view, matrix: after(turn, view.matrix), size };
  },
  crop(view, step) {
    const [x, y, w, h] = step.rect.split(",").map(Number);
    return { ...view, matrix: after([1, 0, 0, 1, -x, -y], view.matrix), size: [w, h] };
  },
};

/** The clip after `steps`. Narration and compression change neither times nor shape. */
export function viewOf(clip, steps) {
  return steps.reduce((view, step) => rules[step.step]?.(view, step) ?? view, startOf(clip));
}

/** When which picture comes on screen in a view; `times` are those of the clip's own. */
export function boundariesOf(view, times, clipSeconds) {
  const at = [];
  const picture = [];
  let start = 0;
  const endOf = (i) => (i + 1 < times.length ? times[i + 1] : Math.max(clipSeconds, times[i] + 1e-3));
  for (const segment of view.segments) {
    const first = Math.max(0, indexAt(times, segment.from + 1e-7));
    const shown = [];
    for (let i = first; i < times.length && (i === first || times[i] < segment.to - 1e-7); ++i) shown.push(i);
    if (segment.backwards) shown.reverse();
    for (const i of shown) {
      const offset = segment.backwards ? segment.to - Math.min(endOf(i), segment.to) : Math.max(times[i], segment.from) - segment.from;
      at.push(start + offset * segment.ratio);
      picture.push(i);
    }
    start += lengthOfSegment(segment);
  }
  return { at, picture };
}

/** The last of rising `numbers` that is not above `value`; -1 where all are. */
export function indexAt(numbers, value) {
  let low = 0;
  let high = numbers.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (numbers[middle] <= value) low = middle + 1;
    else high = middle;
  }
  return low - 1;
}

/** The segment at a moment, when it starts, and the clip's own time then. */
export function placeAt(view, moment) {
  let start = 0;
  for (let i = 0; i < view.segments.length; ++i) {
    const segment = view.segments[i];
    const length = lengthOfSegment(segment);
    if (moment < start + length || i + 1 === view.segments.length) {
      const inside = Math.min(Math.max(moment - start, 0), length) / segment.ratio;
      return { index: i, segment, start, time: segment.backwards ? segment.to - inside : segment.from + inside };
    }
    start += length;
  }
  return { index: 0, segment: { from: 0, to: 0, ratio: 1 }, start: 0, time: 0 };
}

const nine = (value) => value.toFixed(9).replace(/\.?0+$/, "");
/** Seconds as the program takes them, so that a picture that begins then is the first one, not the one before it. */
export const typedStart = (seconds) => nine(Math.ceil(seconds * 1e9 - 1e-2) / 1e9);
/** The same for an end: the picture that begins then is not shown. */
export const typedEnd = (seconds) => nine(Math.floor(seconds * 1e9 + 1e-2) / 1e9);
