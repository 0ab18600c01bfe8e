// What charts are painted on: a canvas. svg-surface.js takes the same calls.

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
