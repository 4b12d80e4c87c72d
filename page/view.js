// What a clip looks like after its steps, reckoned here so that it is seen at once: which moment of which clip is on screen
// when, and how its picture lies. What is made in the end is the program's, by the same steps.

/** All of a source (see Player), whose clip is { seconds, size: [width, height] } in pixels as it is seen. */
const wholeOf = (source, matrix = [1, 0, 0, 1, 0, 0]) =>
  ({ source, matrix, from: source.offset, to: source.offset + source.clip.seconds, ratio: 1, backwards: false });

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

const drawn = (view, matrix, size) =>
  ({ segments: view.segments.map((segment) => ({ ...segment, matrix: after(matrix, segment.matrix) })), size });

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
    return drawn(view, turn, size);
  },
  crop(view, step) {
    const [x, y, w, h] = step.rect.split(",").map(Number);
    return drawn(view, [1, 0, 0, 1, -x, -y], [w, h]);
  },
  /** The others are shown whole in the shape of what is there. */
  join(view, step, sources) {
    const others = step.in.map((name) => sources.find((source) => source.clip.name === name)).filter(Boolean);
    const isAlike = others.every(({ clip }) => clip.size.every((side, i) => side === view.size[i]));
    const size = isAlike ? view.size : view.size.map((side) => Math.max(2, 2 * Math.round(side / 2)));
    const fitted = others.map((source) => {
      const scale = Math.min(size[0] / source.clip.size[0], size[1] / source.clip.size[1]);
      const [x, y] = size.map((side, i) => (side - scale * source.clip.size[i]) / 2);
      return wholeOf(source, [scale, 0, 0, scale, x, y]);
    });
    return { segments: [...view.segments, ...fitted], size };
  },
};

/** The first of `sources` after `steps`. Narration and compression change neither times nor shape. */
export function viewOf(sources, steps) {
  const start = { segments: [wholeOf(sources[0])], size: sources[0].clip.size };
  return steps.reduce((view, step) => rules[step.step]?.(view, step, sources) ?? view, start);
}

/** When which picture comes on screen in a view; `times` are those of all sources. */
export function boundariesOf(view, times) {
  const at = [];
  const picture = [];
  let start = 0;
  const endOf = (i) => times[i + 1] ?? Infinity;
  for (const [number, segment] of view.segments.entries()) {
    const first = Math.max(segment.source.first, indexAt(times, segment.from + 1e-7));
    const shown = [];
    for (let i = first; i < times.length && (i === first || times[i] < segment.to - 1e-7); ++i) shown.push(i);
    if (segment.backwards) shown.reverse();
    // A picture in which the speed changes stays the same one.
    const before = view.segments[number - 1];
    const gap = before && (segment.backwards ? before.from - segment.to : segment.from - before.to);
    if (before?.backwards === segment.backwards && Math.abs(gap) < 1e-6 && shown[0] === picture.at(-1)) shown.shift();
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

/** What is at a moment of a view that shows nothing. */
const nothing = { from: 0, to: 0, ratio: 1, matrix: [1, 0, 0, 1, 0, 0], source: { clip: { seconds: 0, size: [0, 0] }, offset: 0, peaks: [] } };

/** The segment at a moment, when it starts, and the sources' time then. */
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
  return { index: 0, segment: nothing, start: 0, time: 0 };
}

const nine = (value) => value.toFixed(9).replace(/\.?0+$/, "");
/** Seconds as the program takes them, so that a picture that begins then is the first one, not the one before it. */
export const typedStart = (seconds) => nine(Math.ceil(seconds * 1e9 - 1e-2) / 1e9);
/** The same for an end: the picture that begins then is not shown. */
export const typedEnd = (seconds) => nine(Math.floor(seconds * 1e9 + 1e-2) / 1e9);
