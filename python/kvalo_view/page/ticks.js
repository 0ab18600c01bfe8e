// Places and texts of axis ticks, for numbers and for the time formats.

const DAY = 86400;
const CLOCK_STEPS = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, DAY];
const UNIX_FROM = 1e8; // "auto": stamps from here on are Unix times
const UNIX_TO = 1e11;

// The smallest of 1, 2, 5 times a power of ten that is not less than `least`.
export function niceStep(least) {
  const power = 10 ** Math.floor(Math.log10(least));
  for (const m of [1, 2, 5]) if (m * power >= least * (1 - 1e-9)) return m * power;
  return 10 * power;
}

// The step for a time axis: clock units above a second where the format shows a clock.
export function timeStep(least, format) {
  if (format === "seconds" || least <= 0.5) return niceStep(least);
  const step = CLOCK_STEPS.find((s) => s >= least);
  return step ?? DAY * niceStep(least / DAY);
}

// Multiples of `step` within a range; none where there would be more than 200.
export function multiples(a, b, step) {
  if (!(step > 0) || (b - a) / step > 200) return [];
  // Dividing by a whole number keeps 0.3 from becoming 0.30000000000000004.
  const inverse = Math.round(1 / step);
  const exact = step < 1 && Math.abs(inverse * step - 1) < 1e-9;
  const ticks = [];
  for (let k = Math.ceil(a / step - 1e-9); k * step <= b + 1e-9 * step; k++) {
    ticks.push(exact ? k / inverse : k * step);
  }
  return ticks;
}

const decimals = (step) => Math.max(0, Math.min(12, Math.ceil(-Math.log10(step) - 1e-9)));

// Axis texts of at most some seven characters, so that axes keep their width.
export function numberTexts(ticks, step) {
  const largest = Math.max(...ticks.map(Math.abs), step);
  if (largest >= 1e6 || largest < 1e-4) {
    const power = Math.floor(Math.log10(largest));
    return ticks.map((t) => (t === 0 ? "0" : `${(t / 10 ** power).toFixed(decimals(step / 10 ** power))}e${power}`));
  }
  return ticks.map((t) => (t === 0 ? 0 : t).toFixed(decimals(step)));
}

// A value for people: up to seven digits, never longer than twelve characters.
export function valueText(value, digits = 7) {
  if (value === null || value === undefined) return "–";
  if (!Number.isFinite(value)) return Number.isNaN(value) ? "no value" : value > 0 ? "∞" : "-∞";
  const size = Math.abs(value);
  if (size !== 0 && (size >= 1e7 || size < 1e-4)) return value.toExponential(digits - 3);
  return String(Number(value.toPrecision(digits)));
}

// What "auto" means for stamps of this size.
export function timeFormat(format, largest) {
  if (format !== "auto") return format;
  return largest >= UNIX_FROM && largest < UNIX_TO ? "datetime" : "seconds";
}

const two = (n) => String(n).padStart(2, "0");

// A time with so many decimals of seconds. Times are UTC.
export function timeText(t, format, digits = 3) {
  if (!Number.isFinite(t)) return "–";
  if (format === "seconds") return t.toFixed(digits);
  const unit = 10 ** digits;
  const rounded = Math.round(Math.abs(t) * unit) / unit;
  const sign = t < 0 && rounded > 0 ? "-" : "";
  if (format === "hms") {
    const minutes = Math.floor(rounded / 60);
    return `${sign}${Math.floor(minutes / 60)}:${two(minutes % 60)}:${seconds(rounded - 60 * minutes, digits)}`;
  }
  const whole = Math.floor(Math.round(t * unit) / unit);
  const date = new Date(whole * 1000);
  if (Number.isNaN(date.getTime())) return t.toFixed(digits);
  const part = Math.max(0, Math.round(t * unit) / unit - whole);
  const clock = `${two(date.getUTCHours())}:${two(date.getUTCMinutes())}:${seconds(date.getUTCSeconds() + part, digits)}`;
  return format === "time" ? clock : `${date.toISOString().slice(0, date.toISOString().indexOf("T"))} ${clock}`;
}

function seconds(value, digits) {
  const text = value.toFixed(digits);
  return value < 10 ? `0${text}` : text;
}

// Decimals worth showing for a range that is drawn on about a thousand columns.
export function timeDigits(span) {
  return Math.max(0, Math.min(9, Math.ceil(-Math.log10(span / 1000))));
}

// Axis texts of a time axis; with dates, the day goes on a second line where it changes.
export function timeTexts(ticks, format, step) {
  const digits = decimals(Math.min(step, 1));
  if (format !== "datetime") return ticks.map((t) => timeText(t, format, digits));
  let shown = "";
  return ticks.map((t) => {
    const [day, clock] = timeText(t, format, digits).split(" ");
    if (day === shown || clock === undefined) return step >= DAY ? day : clock ?? day;
    shown = day;
    return step >= DAY ? day : `${clock}\n${day}`;
  });
}
