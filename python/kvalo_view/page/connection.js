// The conversation with the server: batches, acknowledgement, and coming back after a break.
import { KIND, parseTile, readJson, request } from "./protocol.js";

const LONGEST_WAIT = 5000;

// `on` has message(json), tile(tile), drawn(callback) and status("open" | "lost" | "gone").
export class Connection {
  #socket = null;
  #seq = 0;
  #wait = 250;
  #gone = false;

  constructor(url, on) {
    this.url = url;
    this.on = on;
    this.offline = false;
    document.addEventListener("visibilitychange", () => this.#tellVisible());
    addEventListener("pagehide", () => this.#socket?.close());
    this.#open();
  }

  // Sends a request of a kind; its number, or 0 while there is nobody to send it to.
  send(kind, fields) {
    if (this.#socket?.readyState !== WebSocket.OPEN) return 0;
    const seq = fields.seq ?? ++this.#seq;
    this.#socket.send(request(kind, { ...fields, seq }));
    return seq;
  }

  #open() {
    const socket = new WebSocket(this.url);
    socket.binaryType = "arraybuffer";
    socket.onopen = () => {
      this.#wait = 250;
      this.on.status("open");
      if (document.hidden) this.#tellVisible();
    };
    socket.onmessage = ({ data }) => this.#take(data);
    socket.onclose = () => {
      if (this.#gone) return;
      this.on.status("lost");
      setTimeout(() => this.#open(), this.#wait);
      this.#wait = Math.min(2 * this.#wait, LONGEST_WAIT);
    };
    this.#socket = socket;
  }

  #take(data) {
    if (typeof data !== "string") {
      const tile = parseTile(data);
      if (tile) this.on.tile(tile);
      return;
    }
    const json = readJson(data);
    if (json.type === "end") {
      // After the frame that draws the batch, so that a slow page is sent less.
      this.on.drawn(() => this.send(KIND.ack, { seq: json.batch }));
    } else if (json.type === "gone") {
      this.#gone = true;
      this.on.status("gone");
    } else {
      this.on.message(json);
    }
  }

  #tellVisible() {
    this.send(KIND.visible, { flags: document.hidden ? 0 : 1 });
  }
}
