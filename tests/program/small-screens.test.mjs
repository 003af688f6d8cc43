// The window on small screens and at the scales of sharp ones: whole, with its buttons in it.

import assert from "node:assert/strict";
import { join } from "node:path";
import { mkdir } from "node:fs/promises";
import { test } from "node:test";

import { product } from "../lib/quillmark.mjs";
import { CHOOSE, ScreenReader, WINDOW_TITLE } from "../lib/kit.mjs";
import { world } from "./lib/world.mjs";

const USUAL = { width: 600, height: 500 };

for (const [width, height, scales] of [[1366, 768, [1, 2, 3]], [800, 600, [1, 2, 3]]]) {
  for (const scale of scales) {
    test(`On ${width}x${height} at scale ${scale} a card, OK and Cancel are within reach`, async (t) => {
      const desktop = await world.addDesktop({ accessible: true, size: `${width}x${height}` });
      const reader = await ScreenReader.start(desktop, world.cleanupOf(t));
      const { host } = await world.hostWithFake(t, {}, { desktop, env: { GDK_SCALE: String(scale), GTK_OVERLAY_SCROLLING: "0" } });
      host.send(CHOOSE);
      await reader.hears(/^focus list item .* selected$/);
      const id = await desktop.window(WINDOW_TITLE);
      await mkdir(product.screenshots, { recursive: true });
      await desktop.screenshot(join(product.screenshots, `screen-${width}x${height}-${scale}.png`));

      const place = await desktop.geometry(id);
      assert.ok(place.width <= width && place.height <= height, `${JSON.stringify(place)} is larger than the screen`);
      const frame = await reader.tree(WINDOW_TITLE);
      const list = find(frame, "list box", "Certificates");
      const [card] = list.children;
      // A card has three lines; below them is nothing but its edge.
      const lines = { ...card.place, height: card.place.height * 0.75 };
      for (const [outer, inner] of [[list, { place: lines }], [frame, find(frame, "push button", "OK")],
        [frame, find(frame, "push button", "Cancel")]]) {
        assert.ok(isWithin(inner.place, outer.place), `${JSON.stringify(inner.place)} is not within ${JSON.stringify(outer.place)}`);
      }
      const { width: wide, height: high } = frame.place;
      const isUsual = wide > USUAL.width - 10 && high > USUAL.height - 40;
      assert.equal(isUsual, width / scale > USUAL.width + 10 && height / scale > USUAL.height + 40, `${wide}x${high}`);

      await desktop.key(id, "Return");
      assert.equal((await host.reply()).status_cd, 1);
    });
  }
}

function find(node, role, name) {
  if (node.role === role && node.name === name) return node;
  return node.children.map((child) => find(child, role, name)).find(Boolean);
}

function isWithin(inner, outer) {
  return inner.x >= outer.x && inner.y >= outer.y && inner.x + inner.width <= outer.x + outer.width
    && inner.y + inner.height <= outer.y + outer.height;
}
