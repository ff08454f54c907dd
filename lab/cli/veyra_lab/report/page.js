"use strict";
// Tips on hover, tap and arrow keys, and zoom. Without it the page shows the same, with the browser's own tips.
(() => {
  const chart = document.querySelector(".chart");
  const scroll = document.querySelector(".scroll");
  const tip = document.getElementById("tip");
  const begin = Number(chart.dataset.begin);
  const length = Number(chart.dataset.end) - begin;
  const NEAR = 14;
  const MOST_PIXELS = 4e6;
  let shown = null;
  let zoom = 1;

  const tracks = new Map();
  for (const track of chart.querySelectorAll(".track[tabindex]")) {
    const things = [...track.querySelectorAll("[title]")].map((element) => {
      const words = element.title;
      element.removeAttribute("title");
      const left = parseFloat(element.style.left);
      return { element, words, left, right: left + (parseFloat(element.style.width) || 0) };
    });
    tracks.set(track, things.sort((a, b) => a.left - b.left));
  }

  function hide() {
    shown?.element.classList.remove("on");
    shown = null;
    tip.hidden = true;
  }

  function show(thing, x, y) {
    if (shown !== thing) {
      hide();
      shown = thing;
      thing.element.classList.add("on");
      tip.textContent = thing.words;
      tip.hidden = false;
    }
    const width = tip.offsetWidth;
    const height = tip.offsetHeight;
    const left = Math.min(Math.max(6, x + 12), innerWidth - width - 6);
    const above = y - height - 14;
    tip.style.transform = `translate(${Math.max(6, left)}px, ${above < 6 ? y + 18 : above}px)`;
  }

  // The thing under the pointer, or else the mark that is nearest, or else the span that is there.
  function find(track, target, x) {
    const things = tracks.get(track);
    const own = target.closest?.(".s, i");
    const direct = own && track.contains(own) && things.find((thing) => thing.element === own);
    const box = track.getBoundingClientRect();
    const place = (100 * (x - box.left)) / box.width;
    const near = (100 * NEAR) / box.width;
    if (direct && !direct.element.classList.contains("session")) return direct;
    let best = null;
    let distance = near;
    for (const thing of things) {
      const away = place < thing.left ? thing.left - place : place > thing.right ? place - thing.right : 0;
      const rank = thing.element.classList.contains("session") ? near * 0.99 : away;
      if (rank < distance || (rank === distance && thing.element.className === "f")) {
        best = thing;
        distance = rank;
      }
    }
    return best;
  }

  function point(event) {
    const track = event.target.closest?.(".track[tabindex]");
    const thing = track && find(track, event.target, event.clientX);
    if (thing) show(thing, event.clientX, event.clientY);
    else hide();
  }

  document.addEventListener("pointermove", (event) => { if (event.pointerType === "mouse") point(event); });
  document.addEventListener("pointerdown", point);
  scroll.addEventListener("pointerleave", (event) => { if (event.pointerType === "mouse") hide(); });

  chart.addEventListener("keydown", (event) => {
    const things = tracks.get(event.target);
    if (!things?.length) return;
    const at = things.indexOf(shown);
    const to = { ArrowRight: at + 1, ArrowLeft: at < 0 ? 0 : at - 1, Home: 0, End: things.length - 1 }[event.key];
    if (event.key === "Escape") hide();
    if (to === undefined) return;
    event.preventDefault();
    const thing = things[Math.min(things.length - 1, Math.max(0, to))];
    const names = chart.querySelector(".lane:not(.axis) .name");
    const covered = getComputedStyle(names.parentElement).display === "grid" ? names.offsetWidth : 0;
    const box = event.target.getBoundingClientRect();
    const view = scroll.getBoundingClientRect();
    let x = box.left + (box.width * thing.left) / 100;
    if (x < view.left + covered + 10 || x > view.right - 10) {
      const before = scroll.scrollLeft;
      scroll.scrollLeft += x - (view.left + covered + view.right) / 2;
      x -= scroll.scrollLeft - before;
    }
    show(thing, x, box.top);
  });
  chart.addEventListener("focusout", hide);

  // Zoom.

  function trackWidth() { return chart.querySelector(".axis .track").offsetWidth; }
  function visibleWidth() { return trackWidth() / zoom; }

  function zoomTo(wanted, centre) {
    zoom = Math.min(Math.max(1, wanted), MOST_PIXELS / visibleWidth());
    chart.style.setProperty("--zoom", zoom);
    const width = trackWidth();
    scroll.scrollLeft = (centre / 100) * width - visibleWidth() / 2;
    hide();
    axis();
  }

  function centre() { return (100 * (scroll.scrollLeft + visibleWidth() / 2)) / trackWidth(); }

  function axis() {
    const track = chart.querySelector(".axis .track");
    const width = trackWidth();
    const least = (85 / width) * length;
    const power = 10 ** Math.floor(Math.log10(least));
    const step = [1, 2, 5, 10].map((each) => each * power).find((each) => each >= least);
    const digits = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
    const from = begin + (length * Math.max(0, scroll.scrollLeft - 100)) / width;
    const to = begin + (length * (scroll.scrollLeft + visibleWidth() + 100)) / width;
    const ticks = [];
    for (let count = Math.ceil(from / step); count * step <= Math.min(to, begin + length); count++) {
      const place = (100 * (count * step - begin)) / length;
      const tick = document.createElement("span");
      tick.className = "tick";
      tick.style.left = `${place}%`;
      tick.textContent = `${(count * step).toFixed(digits)} s`;
      // A label that would be cut off at the right end is left out.
      if ((1 - place / 100) * width > 48) ticks.push(tick);
    }
    track.replaceChildren(...ticks);
  }

  function button(words, label, action) {
    const made = document.createElement("button");
    made.type = "button";
    made.textContent = words;
    made.setAttribute("aria-label", label);
    made.addEventListener("click", action);
    return made;
  }

  const bar = document.querySelector(".zoom");
  const from = Number(chart.dataset.from);
  const to = Number(chart.dataset.to);
  bar.append(button("Whole run", "Show the whole run", () => zoomTo(1, 50)));
  if (to > from) {
    bar.append(button("The download", "Show the download alone", () => zoomTo(100 / (to - from), (from + to) / 2)));
  }
  bar.append(button("−", "Zoom out", () => zoomTo(zoom / 2, centre())));
  bar.append(button("+", "Zoom in", () => zoomTo(zoom * 2, centre())));
  bar.hidden = false;
  let drawing = false;
  scroll.addEventListener("scroll", () => {
    if (drawing) return;
    drawing = true;
    requestAnimationFrame(() => { drawing = false; axis(); });
  });
  addEventListener("resize", axis);
  // On paper the whole run is shown.
  let before = [1, 50];
  addEventListener("beforeprint", () => { before = [zoom, centre()]; zoomTo(1, 50); });
  addEventListener("afterprint", () => zoomTo(...before));
  // Where something failed, that is what a reader looks for.
  const open = [Number(chart.dataset.openFrom), Number(chart.dataset.openTo)];
  if (open[1] > open[0]) zoomTo(100 / (open[1] - open[0]), (open[0] + open[1]) / 2);
  else axis();
})();
