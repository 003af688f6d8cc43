/** Lets the user draw a rectangle on a page with the mouse. */

const LEAST = 10;

/** `onPlace({page (from 0), rectangle})` is called with a rectangle in the page's own points. */
export function letPlace(container, view, onPlace) {
  let start;
  const drawn = document.createElement("div");
  drawn.className = "drawn";

  const corners = ({ clientX, clientY }) => {
    const { box } = start.at;
    const clip = (value, most) => Math.min(Math.max(value, 0), most);
    const [x, y] = [clip(clientX - box.left, box.width), clip(clientY - box.top, box.height)];
    return [Math.min(x, start.x), Math.min(y, start.y), Math.max(x, start.x), Math.max(y, start.y)];
  };

  container.addEventListener("pointerdown", (event) => {
    const element = event.target.closest?.(".places .page");
    const at = element && event.button === 0 && view.pageOf(element);
    if (!at) return;
    start = { at, x: event.clientX - at.box.left, y: event.clientY - at.box.top };
    element.append(drawn);
    container.setPointerCapture(event.pointerId);
  });
  container.addEventListener("pointermove", (event) => {
    if (!start) return;
    const [left, top, right, bottom] = corners(event);
    Object.assign(drawn.style, {
      left: `${left}px`, top: `${top}px`, width: `${right - left}px`, height: `${bottom - top}px`,
    });
  });
  container.addEventListener("pointerup", (event) => {
    if (!start) return;
    const [left, top, right, bottom] = corners(event);
    const { page, viewport, box } = start.at;
    start = undefined;
    drawn.remove();
    drawn.removeAttribute("style");
    if (right - left < LEAST || bottom - top < LEAST) return;
    const scale = viewport.width / box.width;
    const [x1, y1] = viewport.convertToPdfPoint(left * scale, top * scale);
    const [x2, y2] = viewport.convertToPdfPoint(right * scale, bottom * scale);
    onPlace({ page, rectangle: [Math.min(x1, x2), Math.min(y1, y2), Math.max(x1, x2), Math.max(y1, y2)] });
  });
}
