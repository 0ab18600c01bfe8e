// Colours and dash patterns of curves: the Okabe-Ito hues, each dark or light enough for 3:1 on its theme.

const CURVES = {
  light: ["#0072b2", "#c84f00", "#008560", "#a8509a", "#1f84bd", "#a87000", "#7d7400", "#222222"],
  dark: ["#56b4e9", "#e69f00", "#2bc492", "#e08cc4", "#f0e442", "#ff7f3f", "#7aa2ff", "#f0f0f0"],
};
const DASHES = [[], [7, 3], [2, 3], [9, 3, 2, 3]];

const INK = {
  light: { text: "#1d2126", soft: "#59616b", grid: "#e6e8eb", line: "#b9bfc6", back: "#ffffff", accent: "#8a4b00" },
  dark: { text: "#e8eaed", soft: "#a4acb6", grid: "#2b3037", line: "#4d545d", back: "#16191d", accent: "#ffc36b" },
};
const FORCED = {
  text: "CanvasText", soft: "CanvasText", grid: "GrayText", line: "CanvasText", back: "Canvas", accent: "Highlight",
};

const system = matchMedia("(prefers-color-scheme: dark)");
const forced = matchMedia("(forced-colors: active)");

// The colours in use; `apply` picks them and tells the style sheet.
export const palette = { theme: "light", ink: INK.light, curves: CURVES.light };

export function applyTheme(wanted) {
  palette.theme = wanted === "dark" || wanted === "light" ? wanted : system.matches ? "dark" : "light";
  palette.ink = forced.matches ? FORCED : INK[palette.theme];
  palette.curves = CURVES[palette.theme];
  document.documentElement.dataset.theme = palette.theme;
}

export function onSystemTheme(callback) {
  for (const query of [system, forced]) query.addEventListener("change", callback);
}

// How curve number `i` of a chart is drawn: { color, dash } with dash in CSS pixels.
export function curveStyle(i) {
  const round = Math.floor(i / palette.curves.length);
  return { color: palette.curves[i % palette.curves.length], dash: DASHES[round % DASHES.length] };
}

// The colour of an annotation: three numbers from the script, or the page's own.
export function annotationColor(rgb) {
  if (!rgb) return palette.ink.accent;
  // Towards white or black until it can be told from the background.
  const back = palette.theme === "dark" ? 0.009 : 1;
  let color = rgb.map((c) => Math.max(0, Math.min(255, Number(c) || 0)));
  for (let i = 0; i < 20 && contrast(luminance(color), back) < 3; i++) {
    color = color.map((c) => Math.round(c + (palette.theme === "dark" ? 255 - c : -c) * 0.12));
  }
  return `rgb(${color.join(" ")})`;
}

// Relative luminance and contrast as WCAG 2 defines them.
function luminance(rgb) {
  const [r, g, b] = rgb.map((c) => (c <= 10 ? c / 3294.6 : ((c / 255 + 0.055) / 1.055) ** 2.4));
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
}
const contrast = (a, b) => (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);

// Viridis at nine places, as red, green, blue.
const VIRIDIS = [
  [68, 1, 84], [71, 44, 122], [59, 81, 139], [44, 113, 142], [33, 144, 141],
  [39, 173, 129], [92, 200, 99], [170, 220, 50], [253, 231, 37],
];

// 256 colours as the little-endian words of an ImageData.
export const heat = Uint32Array.from({ length: 256 }, (_, i) => {
  const place = (i / 255) * (VIRIDIS.length - 1);
  const k = Math.min(VIRIDIS.length - 2, Math.floor(place));
  const [r, g, b] = VIRIDIS[k].map((c, j) => Math.round(c + (VIRIDIS[k + 1][j] - c) * (place - k)));
  return (255 << 24) | (b << 16) | (g << 8) | r;
});
