// Chooses one of the browser's tabs. Only that one holds the connection to the decoder.
//
// The browser's locks do it where they exist (https, or an address of this machine). Elsewhere the tabs talk: a visible tab
// asks once a second who leads, and leads itself when nobody answers. Answering needs no timer, because browsers slow down
// the timers of hidden tabs. Each claim has a higher number than those before it; of two leaders the lower one stops. So a
// tab that slept and still believes that it leads learns that it does not.
//
// A browser in which tabs can't talk either has a connection for each tab.

const lockName = "decoder-panel-stream";
const askEvery = 1000; // milliseconds
const firstPatience = 400; // milliseconds until a new tab leads that gets no answer
const patience = 2500; // milliseconds without an answer after which a leader is taken for gone

function electWithLocks(lead, stop, otherwise) {
  let release = null;
  const request = (options) => navigator.locks.request(lockName, options, () => {
    lead();
    return new Promise((resolve) => { release = resolve; });
  }).catch((error) => {
    stop();
    // Another tab has taken the lock, because this one was silent for too long. Queue again.
    if (error.name === "AbortError") setTimeout(() => request({}), 1000);
    else otherwise(); // the browser has locks but does not give them to this page
  });
  request({});
  return { steal: () => request({ steal: true }), leave: () => release?.() };
}

function electByTalking(channel, lead, stop) {
  const own = Math.random(); // decides between two claims of the same number
  let newest = 0; // the highest number of a claim so far
  let leading = false;
  let answered = performance.now(); // when a leader was heard
  const visible = () => document.visibilityState === "visible";
  const silent = () => performance.now() - answered;
  const tell = () => channel.postMessage({ kind: "leader", claim: newest, own });
  const ask = () => channel.postMessage({ kind: "ask" });
  const claim = () => {
    if (leading) return;
    leading = true;
    newest += 1;
    tell();
    lead();
  };
  const hear = (other) => {
    answered = performance.now();
    if (leading && (other.claim < newest || (other.claim === newest && other.own < own))) {
      tell();
      return;
    }
    newest = Math.max(newest, other.claim);
    if (!leading) return;
    leading = false;
    stop();
  };
  const claimSoon = () => {
    const before = answered;
    setTimeout(() => answered === before && visible() && claim(), firstPatience + Math.random() * 200);
  };
  channel.addEventListener("message", ({ data }) => {
    if (data.kind === "ask" && leading) tell();
    if (data.kind === "leader") hear(data);
    if (data.kind === "bye") claimSoon();
  });
  const look = () => {
    if (leading || !visible()) return;
    ask();
    if (silent() > patience) claim();
  };
  // A hidden tab asks nobody, so it knows nothing of the time until it is seen again.
  document.addEventListener("visibilitychange", () => {
    if (!visible() || leading) return;
    ask();
    claimSoon();
  });
  setInterval(look, askEvery + Math.random() * 300);
  ask();
  claimSoon();
  return { steal: claim, leave: () => leading && channel.postMessage({ kind: "bye" }) };
}

// Calls lead() when this tab leads, and stop() when another one has taken over. `channel`: a BroadcastChannel, or null.
export function elect(channel, lead, stop) {
  if (!channel) {
    lead();
    return { steal() {}, leave() {} };
  }
  if (!navigator.locks) return electByTalking(channel, lead, stop);
  let way = electWithLocks(lead, stop, () => {
    way = electByTalking(channel, lead, stop);
  });
  return { steal: () => way.steal(), leave: () => way.leave() };
}
