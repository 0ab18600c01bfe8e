// What the page knows about each kind of chart: its name, curves, plot areas and axis titles.
import { curveStyle } from "./palette.js";

const each = (chart) => chart.series.map((series) => ({ ...series, label: series.name }));
const nameOf = (chart, i) => chart.series[i]?.name ?? "";

const unitTitle = (chart) => (chart.x?.unit === "s" ? "s" : chart.x?.unit ?? "");

// curves: what is drawn; title: what is seen, if not the names of the curves; panes: titles of the plot areas; x: title of the x axis where the script sets none;
// whole: all data come whatever the range; zero: the y range has 0 in it; titled: a title instead of a legend.
const KINDS = {
  line: { name: "Time series", curves: each, x: (chart) => (chart.x?.time ? "" : unitTitle(chart)) },
  bool: { name: "States", curves: each, x: () => "" },
  cross: {
    name: "Cross plot", curves: (chart) => each(chart).slice(1), x: (chart) => nameOf(chart, 0), dots: true,
    title: (chart) => `${chart.series.slice(1).map((series) => series.name).join(", ")} over ${nameOf(chart, 0)}`,
  },
  fft: { name: "Spectrum", curves: each, x: () => "Hz", zero: true },
  bode: {
    name: "Frequency response",
    curves: () => [
      { key: 0, label: "Gain", side: "left", pane: 0 },
      { key: 1, label: "Phase", side: "left", pane: 1 },
      { key: 2, label: "Coherence", side: "right", pane: 0, unit: [0, 1] },
    ],
    panes: ["Gain, dB", "Phase, °"], x: () => "Hz",
    title: (chart) => `${nameOf(chart, 0)} to ${nameOf(chart, 1)}`,
  },
  xcorr: {
    name: "Cross-correlation",
    curves: (chart) => [{ key: 0, label: `${nameOf(chart, 1)} after ${nameOf(chart, 0)}`, side: "left" }],
    x: () => "lag, s",
  },
  hist: { name: "Histogram", curves: each, x: () => "value", whole: true, zero: true },
  heatmap: {
    name: "Heat map", curves: (chart) => [{ key: 0, label: `${nameOf(chart, 1)} over ${nameOf(chart, 0)}`, side: "left" }],
    x: (chart) => nameOf(chart, 0), whole: true, cells: "count", titled: true,
  },
  spectro: {
    name: "Spectrogram", curves: (chart) => [{ key: 0, label: nameOf(chart, 0), side: "left" }],
    panes: ["Hz"], x: () => "", cells: "dB", titled: true,
  },
  line3d: { name: "3-D line", curves: each, x: () => "", whole: true, titled: true },
  mesh: { name: "Surface", curves: each, x: () => "", whole: true, titled: true },
  synoptic: { name: "Synoptic", curves: each, x: () => "", titled: true },
};

export const kindOf = (chart) => KINDS[chart.kind] ?? { name: "Chart", curves: each, x: unitTitle };

// The curves of a chart with their colours; `isHidden(key)` tells which the reader has switched off.
export function curvesOf(chart, isHidden) {
  const curves = kindOf(chart).curves(chart);
  return curves.map((curve, i) => ({
    pane: 0, side: "left", style: "line", ...curve, ...curveStyle(i), lane: i,
    only: curves.length === 1, hidden: isHidden(curve.key),
    shown: chart.legend?.full && curve.full_name ? curve.full_name : curve.label,
  }));
}
