// Starts the page: with the server it came from, or with the data that the file itself holds.
import { App } from "./app.js";
import { Connection } from "./connection.js";

const data = document.getElementById("kvalo-data");
const root = document.getElementById("app");

if (data) {
  import("./embedded.js").then(({ Embedded }) => new App(root, (on) => new Embedded(data.textContent, on)));
} else {
  const address = new URL("s", location.href.replace(/^http/, "ws").replace(/#.*/, ""));
  new App(root, (on) => new Connection(address, on));
}
