// What the page knows. Modules read `state` and are told when a part of it is set.

const roles = ["none", "viewer", "operator", "admin"];

export const state = {
  session: { user: "", role: "none" },
  link: { state: "connecting", since: null }, // connecting, open, lost; since when it is lost (milliseconds)
  status: null,
  statusTime: 0, // when the status came, on performance.now()'s clock
  sources: [],
  fleet: null, // all decoders of the site; null before the first event
  picture: null,
  changes: [], // newest first
  journal: [], // newest first
};

const listeners = new Map();

export function on(part, listener) {
  if (!listeners.has(part)) listeners.set(part, []);
  listeners.get(part).push(listener);
}

export function set(part, value) {
  state[part] = value;
  if (part === "status") state.statusTime = performance.now();
  for (const listener of listeners.get(part) || []) listener(value);
}

// Puts newer entries in front of a list and keeps its length bounded.
export function addTo(part, entries, most) {
  set(part, [...entries].reverse().concat(state[part]).slice(0, most));
}

export function mayAct(least) {
  return roles.indexOf(state.session.role) >= roles.indexOf(least);
}

export function sourceAt(index) {
  return state.sources.find((source) => source.index === index) || null;
}
