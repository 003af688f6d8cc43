/** Lets the user move a rectangle over the pages, and change its size, with the keys of a button. */

const STEP = 10;
const LEAST = 20;

/** How long after the last key the document is drawn anew. */
const REST_MS = 400;

const STEPS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
const TURNS = { PageUp: -1, PageDown: 1 };

/**
 * `placeOf()` gives the place {page (from 0), rectangle} in the page's own points, as `onPlace` is called with a new one; undefined
 * while nothing can be moved.
 */
export function letPlaceByKeys(button, view, placeOf, onPlace) {
  let moved;
  let timer;
  const drawn = document.createElement("div");
  drawn.className = "drawn";

  button.addEventListener("keydown", async (event) => {
    const [step, turn] = [STEPS[event.key], TURNS[event.key]];
    if (!step && !turn) return;
    event.preventDefault();
    if (!moved && !placeOf()) return;
    clearTimeout(timer);
    moved ??= await boxOf(view, placeOf());
    if (turn) moved = await turned(view, moved, turn);
    else moved = { ...moved, box: event.shiftKey ? resized(moved, step) : shifted(moved, step) };
    show(moved);
    clearTimeout(timer);
    timer = setTimeout(finish, REST_MS);
  });

  // The next key is for something else.
  button.addEventListener("blur", () => moved && finish());

  function show({ element, viewport, box: [left, top, right, bottom] }) {
    const part = (value, whole) => `${(value / whole) * 100}%`;
    const { width, height } = viewport;
    Object.assign(drawn.style, {
      left: part(left, width), top: part(top, height), width: part(right - left, width), height: part(bottom - top, height),
    });
    element.append(drawn);
    drawn.scrollIntoView({ block: "nearest" });
  }

  function finish() {
    clearTimeout(timer);
    const { page, viewport, box: [left, top, right, bottom] } = moved;
    moved = undefined;
    drawn.remove();
    const [x1, y1] = viewport.convertToPdfPoint(left, top);
    const [x2, y2] = viewport.convertToPdfPoint(right, bottom);
    onPlace({ page, rectangle: [Math.min(x1, x2), Math.min(y1, y2), Math.max(x1, x2), Math.max(y1, y2)] });
  }
}

// What the user sees: from the page's upper left corner, also of a page that is turned.
async function boxOf(view, { page, rectangle }) {
  const { element, viewport } = await view.bringIntoSight(page);
  const [x1, y1, x2, y2] = viewport.convertToViewportRectangle(rectangle);
  return { page, element, viewport, box: [Math.min(x1, x2), Math.min(y1, y2), Math.max(x1, x2), Math.max(y1, y2)] };
}

const clip = (value, least, most) => Math.max(least, Math.min(value, most));

function shifted({ box: [left, top, right, bottom], viewport: { width, height } }, [across, down]) {
  const x = clip(left + across * STEP, 0, Math.max(0, width - (right - left))) - left;
  const y = clip(top + down * STEP, 0, Math.max(0, height - (bottom - top))) - top;
  return [left + x, top + y, right + x, bottom + y];
}

function resized({ box: [left, top, right, bottom], viewport: { width, height } }, [across, down]) {
  const side = (start, end, step, most) => clip(end + step * STEP, start + LEAST, Math.max(most, start + LEAST));
  return [left, top, side(left, right, across, width), side(top, bottom, down, height)];
}

async function turned(view, moved, turn) {
  const page = clip(moved.page + turn, 0, view.count - 1);
  const place = { ...moved, page, ...(await view.bringIntoSight(page)) };
  return { ...place, box: shifted(place, [0, 0]) };
}
