/** How long the window has to be in front, seen and left alone before it takes an answer. */
const ARMING_MS = 1_000;

/** How often the window looks whether it was moved, which no event tells. */
const LOOK_MS = 100;

/**
 * Says whether a click or key is meant for this window: only after a second in which it had the focus, was in sight, kept its
 * size and place, and nobody pressed a key or button in it or newly came into it with the mouse. Each of these, also later,
 * begins the second anew, for whatever covers a window and goes away takes the focus, or leaves the mouse in it.
 */
export class Arming {
  #onChange;
  #place = "";
  #calmSince = Infinity;
  #pressedAt = -Infinity;
  isArmed = false;

  /** `onChange(isArmed)` is called with each change, and once at the beginning with false. */
  constructor(onChange) {
    this.#onChange = onChange;
    for (const type of ["blur", "focus", "resize"]) window.addEventListener(type, () => this.restart());
    document.addEventListener("visibilitychange", () => this.restart());
    document.documentElement.addEventListener("mouseenter", () => this.restart());
    for (const type of ["pointerdown", "keydown"]) window.addEventListener(type, (event) => this.#press(event), true);
    onChange(false);
    this.restart();
    setInterval(() => this.#look(), LOOK_MS);
  }

  /** Whether a click or key counts: it is the user's, and was begun and ended while the window was armed. */
  takes(event) {
    return event.isTrusted && this.isArmed && this.#pressedAt > this.#calmSince;
  }

  restart() {
    const isInFront = document.hasFocus() && document.visibilityState === "visible";
    this.#calmSince = isInFront ? performance.now() : Infinity;
    this.#set(false);
  }

  // A key that is held down repeats; it was pressed before.
  #press(event) {
    const isTooEarly = !this.isArmed || event.repeat;
    this.#pressedAt = isTooEarly ? -Infinity : performance.now();
    if (isTooEarly) this.restart();
  }

  #look() {
    const place = [screenX, screenY, outerWidth, outerHeight].join();
    const isCalm = document.hasFocus() && document.visibilityState === "visible" && place === this.#place;
    this.#place = place;
    if (!isCalm || this.#calmSince === Infinity) this.restart();
    else if (performance.now() - this.#calmSince >= ARMING_MS) this.#set(true);
  }

  #set(isArmed) {
    if (isArmed === this.isArmed) return;
    this.isArmed = isArmed;
    this.#onChange(isArmed);
  }
}
