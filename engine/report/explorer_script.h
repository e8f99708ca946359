#pragma once

// What makes the explorer of a report move.

#include "engine/report/report_layer.h"

namespace kvo::report {

/// The script of the page: plain, without anything from elsewhere. It shows the part of the page
/// with the id "explorer", reads the volumes in it and follows the crosshair. Texts of the page
/// are taken as text, never as markup. It is well-formed in XML as a CDATA section.
inline constexpr const char* explorer_script = R"js(//<![CDATA[
(function () {
"use strict";
const root = document.getElementById("explorer");
if (!root || typeof DecompressionStream === "undefined") return;
const MISSING = -32768, NEAR_MM = 20, MOST_ROWS = 40;
const find = (name) => root.querySelector("[data-part='" + name + "']");
const numbers = (name) => root.dataset[name].split(" ").map(Number);
const size = numbers("size"), first = numbers("first"), origin = numbers("origin");
const edge = Number(root.dataset.edge), highest = Number(root.dataset.highest);
const lowest = Number(root.dataset.lowest);
const colours = { true: colour_list("positive"), false: colour_list("negative") };
const regions = list_of("regions"), words_of_p = list_of("words-of-p");
const studies = Array.from(find("studies").children, (item) => ({
  name: item.textContent, n: item.dataset.n, image: item.dataset.image !== undefined,
  places: rows_of(item.dataset.places) }));
const volumes = {};
const state = { at: numbers("start"), opacity: 1, threshold: 0, surviving: true };

function colour_list(name) {
  return root.dataset[name].split(" ").map((text) => {
    const rgb = parseInt(text, 16);
    return [rgb >> 16, rgb >> 8 & 255, rgb & 255];
  });
}
function list_of(name) {
  return Array.from(find(name).children, (item) => item.textContent);
}
function rows_of(text) {
  return text ? text.split(";").map((row) => row.split(",").map(Number)) : [];
}

async function read_volume(element) {
  const packed = Uint8Array.from(atob(element.textContent.trim()), (c) => c.charCodeAt(0));
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate"));
  const bytes = new Uint8Array(await new Response(stream).arrayBuffer());
  const count = bytes.length / 2, values = new Int16Array(count);
  for (let i = 0, last = 0; i < count; ++i)
    values[i] = last = (last + (bytes[i] | bytes[count + i] << 8)) << 16 >> 16;
  volumes[element.dataset.volume] = values;
  element.remove();
}

const index_of = (at) => (at[2] * size[1] + at[1]) * size[0] + at[0];
const mm_of = (at) => at.map((n, axis) => origin[axis] + edge * (first[axis] + n));
const voxel_of = (mm) => mm.map((n, axis) =>
  Math.min(size[axis] - 1, Math.max(0, Math.round((n - origin[axis]) / edge) - first[axis])));
const value_at = (name, index) => {
  const value = volumes[name] ? volumes[name][index] : MISSING;
  return value === MISSING ? null : value;
};
function decimals(hundredths) {
  const text = (Math.abs(hundredths) / 100).toFixed(2);
  return hundredths < 0 ? "\u2212" + text : text;
}
const whole = (n) => (n < 0 ? "\u2212" + -n : String(n));
const place_text = (mm) => mm.map(whole).join(", ");

// The shown value of z in hundredths, 0 where it is not to be seen.
function shown(index) {
  const z = volumes.z[index];
  if (z === MISSING || Math.abs(z) < state.threshold) return 0;
  return state.surviving && volumes.surviving[index] !== 1 ? 0 : z;
}
function colour_of(z) {
  const list = colours[z > 0], range = highest - lowest;
  const share = range > 0 ? (Math.abs(z) - lowest) / range : 1;
  return list[Math.round(Math.min(1, Math.max(0, share)) * (list.length - 1))];
}

// A view shows two axes of the box, the second of them upwards.
const views = Array.from(root.querySelectorAll("canvas"), (canvas) => {
  const [across, up, through] = canvas.dataset.axes.split(" ").map(Number);
  const small = document.createElement("canvas");
  small.width = size[across];
  small.height = size[up];
  const context = small.getContext("2d");
  return { canvas, across, up, through, glass: canvas.dataset.glass !== undefined, small, context,
           pixels: context.createImageData(small.width, small.height), deepest: null,
           shown: new Int16Array(small.width * small.height) };
});

function put(pixels, at, grey, z) {
  const share = z === 0 ? 0 : state.opacity, rgb = z === 0 ? [0, 0, 0] : colour_of(z);
  for (let channel = 0; channel < 3; ++channel)
    pixels[at + channel] = grey + share * (rgb[channel] - grey);
  pixels[at + 3] = 255;
}
function fill_slice(view) {
  const at = state.at.slice(), anatomy = volumes.anatomy;
  let pixel = 0;
  for (let row = size[view.up] - 1; row >= 0; --row)
    for (let column = 0; column < size[view.across]; ++column, pixel += 4) {
      at[view.across] = column;
      at[view.up] = row;
      const index = index_of(at), grey = anatomy ? Math.max(0, anatomy[index]) : 0;
      view.shown[pixel / 4] = shown(index);
      put(view.pixels.data, pixel, grey, view.shown[pixel / 4]);
    }
}
// The largest magnitude along each line of sight, and how deep it lies.
function fill_glass(view) {
  const at = [0, 0, 0];
  view.deepest = new Int16Array(size[view.across] * size[view.up]).fill(-1);
  let pixel = 0;
  for (let row = size[view.up] - 1; row >= 0; --row)
    for (let column = 0; column < size[view.across]; ++column, ++pixel) {
      at[view.across] = column;
      at[view.up] = row;
      let best = 0, thickness = 0;
      for (let depth = 0; depth < size[view.through]; ++depth) {
        at[view.through] = depth;
        const index = index_of(at), z = shown(index);
        if (volumes.z[index] !== MISSING) ++thickness;
        if (Math.abs(z) > Math.abs(best)) {
          best = z;
          view.deepest[pixel] = depth;
        }
      }
      const grey = thickness > 0 ? 33 + 74 * Math.exp(-thickness / 20) : 0;
      view.shown[pixel] = best;
      put(view.pixels.data, 4 * pixel, grey, best);
    }
}

// Negative areas have a white rim, so that they differ by more than hue.
function draw_rims(view, context, scale, dots) {
  const columns = view.small.width, rows = view.small.height;
  const negative = (column, row) => column >= 0 && row >= 0 && column < columns && row < rows &&
      view.shown[row * columns + column] < 0;
  context.strokeStyle = "#fff";
  context.lineWidth = dots;
  context.beginPath();
  for (let row = 0; row < rows; ++row)
    for (let column = 0; column < columns; ++column) {
      if (!negative(column, row)) continue;
      for (const [step_x, step_y] of [[-1, 0], [1, 0], [0, -1], [0, 1]]) {
        if (negative(column + step_x, row + step_y)) continue;
        const x = column + (step_x > 0), y = row + (step_y > 0);
        context.moveTo(x * scale, y * scale);
        context.lineTo((x + (step_x === 0)) * scale, (y + (step_y === 0)) * scale);
      }
    }
  context.stroke();
}
function draw_view(view) {
  const canvas = view.canvas, width = Math.max(1, canvas.clientWidth);
  const dots = Math.min(2, window.devicePixelRatio || 1);
  canvas.width = Math.round(width * dots);
  canvas.height = Math.round(canvas.width * view.small.height / view.small.width);
  const context = canvas.getContext("2d"), scale = canvas.width / view.small.width;
  view.context.putImageData(view.pixels, 0, 0);
  context.imageSmoothingQuality = "high";
  context.drawImage(view.small, 0, 0, canvas.width, canvas.height);
  draw_rims(view, context, scale, dots);
  const x = (state.at[view.across] + 0.5) * scale;
  const y = (size[view.up] - state.at[view.up] - 0.5) * scale, gap = 3 * scale;
  for (const [colour, thick] of [["rgba(0,0,0,0.6)", 3 * dots], ["#7dff9a", dots]]) {
    context.strokeStyle = colour;
    context.lineWidth = thick;
    context.beginPath();
    for (const [from_x, from_y, to_x, to_y] of [[0, y, x - gap, y], [x + gap, y, canvas.width, y],
                                               [x, 0, x, y - gap], [x, y + gap, x, canvas.height]]) {
      context.moveTo(from_x, from_y);
      context.lineTo(to_x, to_y);
    }
    context.stroke();
  }
}

function say(name, text) {
  const place = find(name);
  if (place && place.textContent !== text) place.textContent = text;
}
function say_place() {
  const index = index_of(state.at), z = value_at("z", index), p = value_at("p", index);
  const g = ["g", "low", "high"].map((name) => value_at(name, index));
  const info = value_at("info", index), outside = "outside of the mask";
  say("position", place_text(mm_of(state.at)) + " mm");
  say("region", regions[value_at("region", index) || 0]);
  say("z", z === null ? outside : decimals(z) +
      (volumes.surviving[index] === 1 ? " (survives the thresholds)" : ""));
  say("p", p === null ? outside : words_of_p[p]);
  say("g", g.includes(null) ? outside
      : decimals(g[0]) + " (" + decimals(g[1]) + " to " + decimals(g[2]) + ")");
  say("info", info === null ? outside : info + " %");
  mm_of(state.at).forEach((mm, axis) => {
    const field = find("mm-" + "xyz"[axis]);
    if (document.activeElement !== field) field.value = mm;
  });
}

// What a study has near the crosshair: its closest place, [x, y, z, g, low, high], if any. The
// height of a place may be unknown, and only images have limits.
function nearest(study, mm) {
  let best = null, count = 0;
  for (const place of study.places) {
    const distance = Math.hypot(place[0] - mm[0], place[1] - mm[1], place[2] - mm[2]);
    if (distance > (study.image ? 0 : NEAR_MM)) continue;
    ++count;
    if (best === null || distance < best.distance) best = { distance, place, count };
  }
  if (best !== null) best.count = count;
  return { study, best };
}
function known_text(known) {
  const { study, best } = known;
  if (study.image) return best === null ? "image: shown at the peaks of the table" : "image";
  if (best === null) return "no peak within " + NEAR_MM + " mm";
  const more = best.count > 1 ? ", " + (best.count - 1) + " more" : "";
  return "peak at " + Math.round(best.distance) + " mm" + more;
}
function g_text(best) {
  if (best === null) return "";
  const [g, low, high] = best.place.slice(3);
  if (g === undefined || Number.isNaN(g)) return "not given";
  return low === undefined ? decimals(g)
                           : decimals(g) + " (" + decimals(low) + " to " + decimals(high) + ")";
}
function plot_of(best, from, to) {
  const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  const make = (name, values) => {
    const element = document.createElementNS(svg.namespaceURI, name);
    for (const key in values) element.setAttribute(key, values[key]);
    svg.appendChild(element);
  };
  const x = (g) => 4 + 112 * (g - from) / (to - from);
  svg.setAttribute("viewBox", "0 0 120 14");
  svg.setAttribute("aria-hidden", "true");
  make("line", { x1: x(0), x2: x(0), y1: 0, y2: 14, class: "zero" });
  const [g, low, high] = best.place.slice(3);
  if (low !== undefined) make("line", { x1: x(low), x2: x(high), y1: 7, y2: 7, class: "limits" });
  make("circle", { cx: x(g), cy: 7, r: 3.5 });
  return svg;
}
function say_studies() {
  const mm = mm_of(state.at), body = find("near");
  const all = studies.map((study) => nearest(study, mm));
  const distance = (known) => (known.best === null ? (known.study.image ? 1e3 : 1e4)
                                                   : known.best.distance);
  all.sort((a, b) => distance(a) - distance(b));
  const listed = studies.length > MOST_ROWS
      ? all.filter((known) => known.best !== null).slice(0, MOST_ROWS) : all;
  const values = listed.filter((known) => known.best !== null)
      .flatMap((known) => known.best.place.slice(3)).filter((g) => !Number.isNaN(g));
  const from = Math.min(-20, ...values), to = Math.max(20, ...values);
  const rows = listed.map((known) => {
    const row = document.createElement("tr");
    if (known.best === null) row.className = "dim";
    for (const text of [known.study.name, known.study.n, known_text(known), g_text(known.best)]) {
      const cell = row.insertCell();
      cell.textContent = text;
    }
    const cell = row.insertCell();
    if (known.best !== null && !Number.isNaN(known.best.place[3]))
      cell.appendChild(plot_of(known.best, from, to));
    return row;
  });
  body.replaceChildren(...rows);
  const near = all.filter((known) => !known.study.image && known.best !== null).length;
  const with_peaks = studies.filter((study) => !study.image).length;
  say("near-count", with_peaks === 0 ? "" : near + " of the " + with_peaks +
      " studies with peaks " + (near === 1 ? "has" : "have") + " one within " + NEAR_MM +
      " mm of the crosshair." + (listed.length < all.length && listed.length < near
        ? " The closest " + listed.length + " are listed." : ""));
}

let asked = false, refill_glass = true;
function draw() {
  asked = false;
  for (const view of views) {
    if (!view.glass) fill_slice(view);
    else if (refill_glass) fill_glass(view);
    draw_view(view);
  }
  refill_glass = false;
  say_place();
  say_studies();
}
function ask(glass_too) {
  refill_glass = refill_glass || glass_too;
  if (!asked) requestAnimationFrame(draw);
  asked = true;
}
function go(at) {
  state.at = at.map((n, axis) => Math.min(size[axis] - 1, Math.max(0, n)));
  ask(false);
}
function go_to_mm(mm) {
  go(voxel_of(mm));
}

function point(view, event) {
  const box = view.canvas.getBoundingClientRect(), at = state.at.slice();
  const column = Math.floor((event.clientX - box.left) / box.width * size[view.across]);
  const row = Math.floor((event.clientY - box.top) / box.height * size[view.up]);
  if (column < 0 || row < 0 || column >= size[view.across] || row >= size[view.up]) return;
  at[view.across] = column;
  at[view.up] = size[view.up] - 1 - row;
  if (view.glass) {
    const depth = view.deepest[row * size[view.across] + column];
    if (depth >= 0) at[view.through] = depth;
  }
  go(at);
}
function press(view, event) {
  const steps = { ArrowLeft: [view.across, -1], ArrowRight: [view.across, 1],
                  ArrowUp: [view.up, 1], ArrowDown: [view.up, -1],
                  PageUp: [view.through, 1], PageDown: [view.through, -1] };
  const step = steps[event.key];
  if (!step || event.ctrlKey || event.altKey || event.metaKey) return;
  event.preventDefault();
  const at = state.at.slice();
  at[step[0]] += step[1] * (event.shiftKey ? 5 : 1);
  go(at);
}

// The name of a place in a table becomes what leads there.
function link_row(row) {
  const mm = row.dataset.mm.split(" ").map(Number), cell = row.cells[1];
  const button = document.createElement("button");
  button.type = "button";
  button.className = "place";
  button.append(...cell.childNodes);
  button.title = "Show this place in the explorer";
  cell.replaceChildren(button);
  button.addEventListener("click", () => {
    go_to_mm(mm);
    root.scrollIntoView({ block: "start" });
  });
}

function draw_bars() {
  for (const bar of root.querySelectorAll("[data-bar]")) {
    const list = colours[bar.dataset.bar === "positive"].map((rgb) => "rgb(" + rgb.join() + ")");
    if (bar.dataset.bar !== "positive") list.reverse();
    bar.style.background = "linear-gradient(to right," + list.join() + ")";
  }
}
function start() {
  root.hidden = false;
  draw_bars();
  for (const view of views) {
    const canvas = view.canvas;
    canvas.addEventListener("pointerdown", (event) => {
      canvas.setPointerCapture(event.pointerId);
      point(view, event);
    });
    canvas.addEventListener("pointermove", (event) => {
      if (event.buttons & 1) point(view, event);
    });
    canvas.addEventListener("keydown", (event) => press(view, event));
  }
  const threshold = find("threshold"), opacity = find("opacity"), surviving = find("all");
  threshold.addEventListener("input", () => {
    state.threshold = Number(threshold.value);
    say("threshold-text", decimals(state.threshold));
    ask(true);
  });
  opacity.addEventListener("input", () => {
    state.opacity = Number(opacity.value) / 100;
    say("opacity-text", opacity.value + " %");
    ask(true);
  });
  surviving.addEventListener("change", () => {
    state.surviving = !surviving.checked;
    ask(true);
  });
  for (const axis of "xyz")
    find("mm-" + axis).addEventListener("change", () => {
      const mm = [..."xyz"].map((name) => Number(find("mm-" + name).value));
      if (mm.every(Number.isFinite)) go_to_mm(mm);
    });
  document.querySelectorAll("tr[data-mm]").forEach(link_row);
  window.addEventListener("resize", () => ask(false));
  window.addEventListener("beforeprint", draw);
  draw();
  root.dataset.ready = "true";
}
Promise.all(Array.from(root.querySelectorAll("[data-volume]"), read_volume)).then(start);
})();
//]]>)js";

}  // namespace kvo::report
