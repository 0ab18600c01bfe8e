// What charts are painted on: the canvas of the page, or an SVG document for export. Both take the same calls.

export class CanvasSurface {
  constructor(context, ratio) {
    this.context = context;
    this.ratio = ratio;
  }

  // style: stroke, width, dash, fill, alpha
  path(draw, style) {
    const c = this.context;
    c.globalAlpha = style.alpha ?? 1;
    c.beginPath();
    draw(c);
    if (style.fill) {
      c.fillStyle = style.fill;
      c.fill();
    }
    if (style.stroke) {
      c.strokeStyle = style.stroke;
      c.lineWidth = style.width ?? 1;
      c.lineJoin = "bevel";
      c.setLineDash(style.dash ?? []);
      c.stroke();
      c.setLineDash([]);
    }
    c.globalAlpha = 1;
  }

  circle(x, y, radius, style) {
    this.path((c) => c.arc(x, y, radius, 0, 2 * Math.PI), style);
  }

  // style: fill, size in CSS pixels, align, back (a box behind the text)
  text(text, x, y, style) {
    const c = this.context;
    c.font = `${style.size * this.ratio}px system-ui, sans-serif`;
    c.textAlign = style.align ?? "left";
    c.textBaseline = "middle";
    if (style.back) {
      const width = c.measureText(text).width + 6 * this.ratio;
      const height = style.size * 1.4 * this.ratio;
      const left = x - 3 * this.ratio - (c.textAlign === "right" ? width - 6 * this.ratio : c.textAlign === "center" ? width / 2 - 3 * this.ratio : 0);
      c.globalAlpha = 0.85;
      c.fillStyle = style.back;
      c.fillRect(left, y - height / 2, width, height);
      c.globalAlpha = 1;
    }
    c.fillStyle = style.fill;
    c.fillText(text, x, y);
  }

  image(picture, x, y, width, height) {
    this.context.imageSmoothingEnabled = false;
    this.context.drawImage(picture, x, y, width, height);
  }

  clip(x, y, width, height, draw) {
    const c = this.context;
    c.save();
    c.beginPath();
    c.rect(x, y, width, height);
    c.clip();
    draw();
    c.restore();
  }
}

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
