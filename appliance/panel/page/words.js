// What the decoder reports, in words for people.

export function clock(time) {
  return new Date(time).toLocaleTimeString([], { hour: "2-digit", minute: "2-digit", second: "2-digit", hourCycle: "h23" });
}

// "8 s", "3 min", "2 h", "5 days"
export function duration(seconds) {
  const whole = Math.max(0, Math.round(seconds));
  if (whole < 120) return `${whole} s`;
  if (whole < 7200) return `${Math.round(whole / 60)} min`;
  return whole < 172800 ? `${Math.round(whole / 3600)} h` : `${Math.round(whole / 86400)} days`;
}

export function plural(count, one, many) {
  return `${count} ${count === 1 ? one : many}`;
}

export const isPaused = (status) => Boolean(status.paused);

// The name that the big line below the picture has.
export function shownName(status) {
  if (!status) return "Decoder";
  if (status.supervisorPid < 0) return "No decoder is running";
  if (status.activity === "locked") return "Locked";
  if (!status.connected) return status.connectWanted ? "Locked or connecting" : "Disconnected";
  return status.sourceName || "No source";
}

// One sentence about what the decoder does.
export function doing(status) {
  if (!status) return "";
  if (status.supervisorPid < 0) return "The supervisor has ended. The picture stays as it was.";
  if (!status.connected) {
    return status.connectWanted ? "It plays nothing for a moment." : "It plays nothing until it is connected.";
  }
  if (status.error) return `Not playing: ${status.error}. It is tried again.`;
  if (status.activity === "detecting") return "The decoder asks the encoder what it can send.";
  if (status.currentSource < 0) return status.osd?.find((text) => text) || "The decoder looks for a source.";
  if (status.mode !== "auto") return "Shown until another source is selected.";
  return isPaused(status) ? "The sequence is paused." : "All sources are shown in turn.";
}

// What a short press of the decoder's button does now.
export function pressEffect(status) {
  if (!status || !status.connected) return "Connects";
  if (status.mode !== "auto") return "Next source";
  return isPaused(status) ? "Continues the sequence" : "Pauses the sequence";
}

const kinds = {
  mjpeg: "Motion JPEG", "mpeg2-unicast": "MPEG-2", "mpeg2-multicast": "MPEG-2, multicast", "rtsp-unicast": "RTSP",
  "rtsp-multicast": "RTSP, multicast", "rtsp-tcp": "RTSP over TCP", "rtsp-http": "RTSP over HTTP",
};
const codecs = { JPEG: "Motion JPEG", H264: "H.264", H265: "H.265" };

// "H.264, 1920x1080"
export function kindWords(source) {
  const known = source.status || {};
  const kind = codecs[known.Codec] || known.Codec || kinds[source.kind] || source.kind || "";
  return [kind, known.Resolution].filter((word) => word).join(", ") || (errorOf(source) ? "" : "not looked at yet");
}

// The last error of a source in words; "" for none. `error` is {code, text} or a text.
export function errorOf(source) {
  const text = typeof source.error === "string" ? source.error : source.error?.text || "";
  const reason = source.status?.Reason || "";
  return text && reason ? `${text}: ${reason}` : text || reason;
}

export function warmWords(warm) {
  if (!warm) return "";
  if (!warm.kept) return `not kept warm: ${warm.reason}`;
  return `kept warm, key picture ${(warm.keyAgeMs / 1000).toFixed(1)} s old`;
}

// A message of the list "What happened".
export function changeWords(change) {
  const value = change.value;
  switch (change.what) {
  case "decoder": return value?.pid > 0 ? "The supervisor runs" : "The supervisor has ended";
  case "connected": return value ? "Connected" : "Disconnected";
  case "mode": return `Mode: ${value?.inForce || value}`;
  case "source": return value ? `Shows ${value.name}` : "Shows no source";
  case "error": return value ? `Error: ${value.text || value.words || value.code || value}` : "The error is over";
  case "text": return value?.text ? `On the screen: ${value.text}` : "";
  case "led": return `Lamp: ${value?.text || ""}`;
  case "picture": return value?.blank ? "The screen is black" : "";
  case "rate": return "";
  default: return change.text || change.what;
  }
}

export const accountWords = (session) => `${session.user || "local"} (${session.role})`;

// "Screen.ShowName" -> "Show name", "SubURL" -> "Sub URL"
export function labelOf(name) {
  const words = name.slice(name.indexOf(".") + 1).replace(/([a-z])([A-Z])/g, "$1 $2").split(/[ .]/);
  const text = words.map((word) => (/^[A-Z]{2,}$/.test(word) ? word : word.toLowerCase())).join(" ");
  return text.charAt(0).toUpperCase() + text.slice(1);
}
