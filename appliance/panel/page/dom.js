// Making and changing elements. Every text goes through textContent or a property that takes text, so that a name from
// an encoder is always shown and never interpreted.

// h("button", {class: "quiet", type: "button", onclick: f}, "text", element, ...)
export function h(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

export function icon(name) {
  return h("span", { class: `icon i-${name}`, "aria-hidden": "true" });
}

export function byId(id) {
  return document.getElementById(id);
}

// Changes the text only when it differs: a screen reader and a selection by the user are then left alone.
export function setText(element, text) {
  const wanted = text === null || text === undefined ? "" : String(text);
  if (element.textContent !== wanted) element.textContent = wanted;
}

export function setHidden(element, hidden) {
  if (element.hidden !== hidden) element.hidden = hidden;
}

export function setAttribute(element, name, value) {
  if (value === null || value === undefined) element.removeAttribute(name);
  else if (element.getAttribute(name) !== String(value)) element.setAttribute(name, value);
}

// The rows of a <dl>: [[name, value or element], ...]. Rows without a value are left out. Values that are texts are
// changed in place.
export function setFacts(list, rows) {
  const shown = rows.filter(([, value]) => value !== "" && value !== null && value !== undefined);
  const names = shown.map(([name]) => name).join("\n");
  if (list.dataset.names !== names) {
    list.dataset.names = names;
    list.replaceChildren(...shown.map(([name]) => h("div", {}, h("dt", {}, name), h("dd", {}))));
  }
  shown.forEach(([, value], i) => {
    const cell = list.children[i].lastElementChild;
    if (value instanceof Node) cell.replaceChildren(value);
    else setText(cell, value);
  });
}

// The decoder's sentences begin with a small letter. The names of programs and addresses keep theirs.
export function sentence(text) {
  return /^[a-z]+[ ,:]/.test(text) ? text.charAt(0).toUpperCase() + text.slice(1) : text || "";
}

let closing = 0;

function show(element, other, text) {
  clearTimeout(closing);
  other.textContent = "";
  // Emptied first, so that a screen reader reads the same sentence again.
  element.textContent = "";
  requestAnimationFrame(() => {
    element.textContent = sentence(text);
  });
}

// A sentence about something that went well; it goes by itself.
export function say(text) {
  show(byId("said"), byId("warned"), text);
  closing = setTimeout(() => setText(byId("said"), ""), 6000);
}

// A sentence about something that was refused or failed. It stays longer: it has to be read.
export function warn(text) {
  show(byId("warned"), byId("said"), text);
  closing = setTimeout(() => setText(byId("warned"), ""), 15000);
}

export function clearWords() {
  setText(byId("said"), "");
  setText(byId("warned"), "");
}

// Runs an action of a button: the button is busy meanwhile, a refusal is shown. Returns what the action returns, or
// undefined when it was refused.
export async function run(button, action) {
  if (button.getAttribute("aria-busy") === "true") return undefined;
  button.setAttribute("aria-busy", "true");
  try {
    return await action();
  } catch (error) {
    warn(error.message);
    return undefined;
  } finally {
    button.removeAttribute("aria-busy");
  }
}
