// Chooses one of the browser's tabs. Only that one holds the connection to the decoder.
//
// The browser's locks do it where they exist (https, or an address of this machine). Elsewhere the tabs talk: the
// leading tab reports every two seconds, and when it is silent another one leads; of two, the smaller number stays.

const lockName = "decoder-panel-stream";

function electWithLocks(lead, stop) {
  let release = null;
  const request = (options) => navigator.locks.request(lockName, options, () => {
    lead();
    return new Promise((resolve) => { release = resolve; });
  }).catch(() => {
    // Another tab has taken the lock, because this one was silent for too long. Queue again.
    stop();
    setTimeout(() => request({}), 1000);
  });
  request({});
  return { steal: () => request({ steal: true }), leave: () => release?.() };
}

function electByTalking(channel, lead, stop) {
  const own = Math.random();
  let leading = false;
  let heard = performance.now();
  const claim = () => {
    leading = true;
    channel.postMessage({ kind: "leader", number: own });
    lead();
  };
  channel.addEventListener("message", ({ data }) => {
    if (data.kind === "bye") heard = performance.now() - 4700 + Math.random() * 600;
    if (data.kind !== "leader") return;
    heard = performance.now();
    if (leading && data.number < own) {
      leading = false;
      stop();
    }
  });
  const look = () => {
    if (leading) channel.postMessage({ kind: "leader", number: own });
    else if (performance.now() - heard > 5000) claim();
  };
  setInterval(look, 1000 + Math.random() * 500);
  setTimeout(() => performance.now() - heard > 500 && !leading && claim(), 600 + Math.random() * 400);
  return { steal: claim, leave: () => leading && channel.postMessage({ kind: "bye" }) };
}

// Calls lead() when this tab leads, and stop() when another one has taken over.
export function elect(channel, lead, stop) {
  return navigator.locks ? electWithLocks(lead, stop) : electByTalking(channel, lead, stop);
}
