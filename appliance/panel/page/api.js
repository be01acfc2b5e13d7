// Requests to the decoder. Every one has the same origin, and the header X-Panel, which other sites can't set.

// The decoder refused the request, or did not answer (status 0).
export class Refused extends Error {
  constructor(status, text, errors, retryAfter) {
    super(text);
    this.status = status;
    this.errors = errors; // reasons by parameter name; {} when there are none
    this.retryAfter = retryAfter; // seconds; 0 when it says nothing
  }
}

let sessionEnded = () => {};

// `handler` is called when a request finds that the session has ended.
export function onSessionEnd(handler) {
  sessionEnded = handler;
}

const unreachable = "The decoder does not answer. Check the network, then try again.";

async function readJson(response) {
  try {
    return await response.json();
  } catch {
    return {};
  }
}

// The answer's JSON. Throws Refused. `body`: JSON, or nothing.
export async function call(method, path, body) {
  const headers = { "X-Panel": "1", Accept: "application/json" };
  if (body !== undefined) headers["Content-Type"] = "application/json";
  let response;
  try {
    response = await fetch(path, {
      method, headers, credentials: "same-origin", cache: "no-store",
      body: body === undefined ? undefined : JSON.stringify(body),
      signal: AbortSignal.timeout(60000), // adding a camera may take half a minute
    });
  } catch {
    throw new Refused(0, unreachable, {}, 0);
  }
  const answer = await readJson(response);
  if (response.ok) return answer;
  if (response.status === 401 && path !== "/login") sessionEnded();
  throw new Refused(response.status, answer.error || `The decoder refused this (${response.status}).`,
                    answer.errors || {}, Number(response.headers.get("Retry-After")) || 0);
}

const base = "/api/v1";
export const get = (path) => call("GET", base + path);
export const post = (path, body = {}) => call("POST", base + path, body);
export const patch = (path, body) => call("PATCH", base + path, body);
export const remove = (path) => call("DELETE", base + path);
