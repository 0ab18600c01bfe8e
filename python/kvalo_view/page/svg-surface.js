// Paints charts as an SVG document, with the calls of surface.js.

// Collects path commands as the `d` of an SVG path.
class Pen {
  d = [];

  moveTo(x, y) {
    this.d.push(`M${x.toFixed(2)} ${y.toFixed(2)}`);
  }

  lineTo(x, y) {
    this.d.push(`L${x.toFixed(2)} ${y.toFixed(2)}`);
  }

  rect(x, y, width, height) {
    this.d.push(`M${x.toFixed(2)} ${y.toFixed(2)}h${width.toFixed(2)}v${height.toFixed(2)}h${(-width).toFixed(2)}z`);
  }
}

export class SvgSurface {
  ratio = 1;
  #clips = 0;

  constructor(width, height, back) {
    this.root = this.#make("svg", { xmlns: "http://www.w3.org/2000/svg", width, height, viewBox: `0 0 ${width} ${height}` });
    this.parent = this.root;
    this.#add("rect", { width, height, fill: back });
  }

  #make(name, attributes) {
    const element = document.createElementNS("http://www.w3.org/2000/svg", name);
    for (const [key, value] of Object.entries(attributes)) if (value !== undefined) element.setAttribute(key, value);
    return element;
  }

  #add(name, attributes) {
    return this.parent.appendChild(this.#make(name, attributes));
  }

  #style({ stroke, width = 1, dash, fill, alpha }) {
    return {
      stroke, "stroke-width": stroke && width, "stroke-dasharray": dash?.length ? dash.join(" ") : undefined,
      "stroke-linejoin": stroke && "bevel", fill: fill ?? "none", opacity: alpha,
    };
  }

  path(draw, style) {
    const pen = new Pen();
    draw(pen);
    if (pen.d.length) this.#add("path", { d: pen.d.join(""), ...this.#style(style) });
  }

  circle(x, y, radius, style) {
    this.#add("circle", { cx: x, cy: y, r: radius, ...this.#style(style) });
  }

  text(text, x, y, style) {
    const anchor = { right: "end", center: "middle" }[style.align];
    this.#add("text", {
      x, y, fill: style.fill, "font-size": style.size, "font-family": "sans-serif", "text-anchor": anchor,
      "dominant-baseline": "central", transform: style.turn ? `rotate(${style.turn} ${x} ${y})` : undefined,
    }).textContent = text;
  }

  image(picture, x, y, width, height) {
    this.#add("image", { x, y, width, height, href: picture.toDataURL(), preserveAspectRatio: "none", "image-rendering": "pixelated" });
  }

  clip(x, y, width, height, draw) {
    const id = `clip${++this.#clips}`;
    this.#add("clipPath", { id }).appendChild(this.#make("rect", { x, y, width, height }));
    const outer = this.parent;
    this.parent = this.#add("g", { "clip-path": `url(#${id})` });
    draw();
    this.parent = outer;
  }

  toString() {
    return new XMLSerializer().serializeToString(this.root);
  }
}
