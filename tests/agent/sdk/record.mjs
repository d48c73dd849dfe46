// Records a short demo of an xterm through Quillo's tools with the MCP SDK's own client, while
// xdotool types and clicks into the terminal like a person would.
//   node record.mjs demo URL TOKEN WINDOW PID OUT_DIR   share, record, pause, stop, check, export
//   node record.mjs start URL TOKEN PID                share and start recording, then leave
//   node record.mjs steps URL TOKEN PID OUT_DIR        three demo steps on the GTK form, export
import { execFileSync } from "node:child_process";
import { writeFileSync } from "node:fs";
import { check, json } from "./checks.mjs";
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StreamableHTTPClientTransport } from "@modelcontextprotocol/sdk/client/streamableHttp.js";

const [mode, url, token, ...rest] = process.argv.slice(2);
const transport = new StreamableHTTPClientTransport(new URL(url), {
  requestInit: { headers: { Authorization: `Bearer ${token}` } },
});

const sleep = (seconds) => new Promise((done) => setTimeout(done, seconds * 1000));
const xdotool = (...args) => execFileSync("xdotool", args, { encoding: "utf8" });

const client = new Client({ name: "quillo-record-test", version: "1.0.0" });
await client.connect(transport);
const call = async (name, args = {}) => json(await client.callTool({ name, arguments: args }), name);

await call("set_options", { countdown: 0, system_audio: false, microphone: false });
if (mode === "start") {
  const [pid] = rest;
  await call("share_window", { pid: Number(pid) });
  const started = await call("start_recording");
  check(started.state === "recording", `not recording: ${JSON.stringify(started)}`);
  console.log(`recording ${started.recording}`);
  process.exit(0);
}

if (mode === "steps") {
  const [pid, out] = rest;
  await call("share_window", { pid: Number(pid) });
  check((await call("start_recording")).state === "recording", "not recording");
  const steps = [
    { label: "Type a name", x: 60, y: 25, text: "Ada", pace: "brisk" },
    { label: "Save it", x: 180, y: 70, pace: "brisk" },
    { label: "Look at it", x: 180, y: 110, click: "none", pace: "brisk" },
  ];
  for (const step of steps) {
    const played = await call("demo_step", step);
    check(played.paused === true && played.marker >= 0, `demo_step: ${JSON.stringify(played)}`);
    await sleep(2); // the agent thinks; this is cut
  }
  const saved = await call("stop_recording");
  const markers = await call("get_markers", { id: saved.id });
  const recording = await call("get_recording", { id: saved.id });
  const exported = await call("export", { id: saved.id, path: `${out}/steps.mp4` });
  writeFileSync(`${out}/steps.json`, JSON.stringify({ saved, markers, recording, exported }, null, 2));
  console.log(`ok ${exported.path}`);
  process.exit(0);
}

const [window, pid, out] = rest;
const shared = await call("share_window", { pid: Number(pid) });
check(shared.source?.kind === "window", `share_window: ${JSON.stringify(shared)}`);
const status = await call("get_status");
check(status.capture === "x11" && status.screenshotSize.width > 0, JSON.stringify(status));
const shot = await client.callTool({ name: "screenshot", arguments: {} });
check(!shot.isError && shot.content[0].type === "image", "screenshot gave no image");

const started = await call("start_recording");
check(started.state === "recording", `not recording: ${JSON.stringify(started)}`);
await sleep(1);
// The pointer rests on the terminal, so its keys go there (no window manager: focus follows it).
xdotool("mousemove", "--window", window, "60", "40");
xdotool("click", "1");
xdotool("type", "--delay", "120", "echo demo@quillo.dev");
xdotool("key", "Return");
await sleep(1);
const paused = await call("set_paused", { paused: true });
check(paused.paused === true, "set_paused did not pause");
await sleep(1.5);
check((await call("set_paused", { paused: false })).paused === false, "did not resume");
await sleep(1);
const saved = await call("stop_recording");
check(saved.id && saved.duration > 4, `stop_recording: ${JSON.stringify(saved)}`);

const recording = await call("get_recording", { id: saved.id });
check(recording.clicks.length >= 1, `no clicks: ${JSON.stringify(recording)}`);
check(recording.typing.length >= 10, `no typing: ${JSON.stringify(recording.typing)}`);
const cuts = (recording.edits.segments ?? []).filter((s) => s.speed === 0);
check(cuts.length === 1, `expected one cut: ${JSON.stringify(recording.edits.segments)}`);

// The frame just before the pause shows the typed line.
const lastKey = recording.typing[recording.typing.length - 1];
const frame = await client.callTool({
  name: "render_frame",
  arguments: { id: saved.id, time: Math.min(lastKey + 0.6, cuts[0].start - 0.05) },
});
check(!frame.isError && frame.content[0].type === "image", "render_frame gave no image");
writeFileSync(`${out}/frame.jpg`, Buffer.from(frame.content[0].data, "base64"));

const exported = await call("export", { id: saved.id, path: `${out}/demo.mp4` });
writeFileSync(
  `${out}/result.json`,
  JSON.stringify({ recording, saved, exported, cut: cuts[0] }, null, 2),
);
await client.close();
console.log(`ok ${exported.path}`);
process.exit(0);
