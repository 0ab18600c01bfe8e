// Asks for the values of one chart at the cursor, at A and at B, and for the statistics between the two.
import { KIND } from "./protocol.js";

const ROLES = ["at", "a", "b"];

export class Probes {
  #asked = {}; // what each answer that is held or awaited was asked for
  #waiting = null; // { role, seq }: the server keeps only the newest probe of a chart, so one at a time
  #statsSeq = 0;
  values = { at: new Map(), a: new Map(), b: new Map() };
  stats = new Map();

  constructor(source, changed) {
    this.source = source;
    this.changed = changed;
  }

  // Data or conversation are new: everything held is asked for again.
  forget(all) {
    this.#asked = {};
    if (all) this.#waiting = null;
  }

  // Asks for what is missing; `places` has at, a and b, each a place or null.
  ask(chart, places) {
    if (this.#waiting && performance.now() - this.#waiting.since > 3000) this.#waiting = null;
    for (const role of ROLES) {
      if (places[role] === null) {
        if (this.values[role].size) this.changed();
        this.values[role].clear();
        this.#asked[role] = undefined;
      } else if (!this.#waiting && !Object.is(this.#asked[role], places[role])) {
        const seq = this.source.send(KIND.probe, { chart, a: places[role] });
        if (!seq) return;
        this.#asked[role] = places[role];
        this.#waiting = { role, seq, since: performance.now() };
      }
    }
    if (places.a === null || places.b === null) {
      this.stats.clear();
      this.#asked.stats = undefined;
      return;
    }
    const range = [Math.min(places.a, places.b), Math.max(places.a, places.b)];
    if (this.#asked.stats === `${range}`) return;
    const seq = this.source.send(KIND.stats, { chart, a: range[0], b: range[1] });
    if (!seq) return;
    this.#asked.stats = `${range}`;
    this.#statsSeq = seq;
  }

  // Whether the values at the cursor are those of this place.
  knows(place) {
    return this.#waiting?.role !== "at" && Object.is(this.#asked.at, place);
  }

  take(message) {
    if (message.type === "stats") {
      if (message.seq !== this.#statsSeq) return;
      this.stats = new Map(message.values.map((row) => [row.series, row]));
    } else {
      if (message.seq !== this.#waiting?.seq) return;
      this.values[this.#waiting.role] = new Map(message.values.map((row) => [row.series, row]));
      this.#waiting = null;
    }
    this.changed();
  }
}
