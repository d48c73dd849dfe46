// Drives Quillo with the MCP SDK's own client, over Streamable HTTP or over stdio through
// `quillo --mcp`: initialize, list tools, edit a recording, render a frame, export, undo.
//   node client.mjs http URL TOKEN RECORDING_ID
//   node client.mjs stdio QUILLO RECORDING_ID
import { check, json } from "./checks.mjs";
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StreamableHTTPClientTransport } from "@modelcontextprotocol/sdk/client/streamableHttp.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";

const [mode, ...rest] = process.argv.slice(2);
let transport;
let recording;
if (mode === "http") {
  const [url, token, id] = rest;
  recording = id;
  transport = new StreamableHTTPClientTransport(new URL(url), {
    requestInit: { headers: { Authorization: `Bearer ${token}` } },
  });
} else {
  const [quillo, id] = rest;
  recording = id;
  transport = new StdioClientTransport({ command: quillo, args: ["--mcp"], env: process.env });
}

const client = new Client({ name: "quillo-test", version: "1.0.0" });
await client.connect(transport);
check(client.getServerVersion()?.name === "quillo", "serverInfo.name is not quillo");
check(client.getInstructions()?.includes("Quillo records demos"), "instructions missing");

const { tools } = await client.listTools();
const names = tools.map((tool) => tool.name);
for (const name of ["get_status", "trim", "add_zoom", "render_frame", "export", "undo"]) {
  check(names.includes(name), `tools/list lacks ${name}`);
}
check(
  tools.find((tool) => tool.name === "delete_recording").annotations.destructiveHint === true,
  "delete_recording is not marked destructive",
);

const listed = json(await client.callTool({ name: "list_recordings", arguments: {} }), "list");
check(listed.recordings.some((r) => r.id === recording), "the recording is not listed");

const trimmed = json(
  await client.callTool({ name: "trim", arguments: { id: recording, start: 0.5, end: 3.5 } }),
  "trim",
);
check(trimmed.edits.trimStart === 0.5 && trimmed.edits.trimEnd === 3.5, "trim did not apply");
json(
  await client.callTool({
    name: "add_zoom",
    arguments: { id: recording, start: 1, end: 3, scale: 2, x: 0.25, y: 0.25, follow: false },
  }),
  "add_zoom",
);

const frame = await client.callTool({ name: "render_frame", arguments: { id: recording, time: 2 } });
check(!frame.isError && frame.content[0].type === "image", "render_frame gave no image");
check(frame.content[0].mimeType === "image/jpeg", "render_frame is not a JPEG");
check(Buffer.from(frame.content[0].data, "base64").subarray(0, 2).toString("hex") === "ffd8",
  "render_frame data is not JPEG");

const exported = json(
  await client.callTool({ name: "export", arguments: { id: recording, size: "720p" } }),
  "export",
);
check(exported.path.endsWith(".mp4"), `export path ${exported.path}`);

const undone = json(await client.callTool({ name: "undo", arguments: { id: recording } }), "undo");
check(undone.edits.zooms.length === 0, "undo did not remove the zoom");

const unknown = await client.callTool({ name: "no_such_tool", arguments: {} });
check(unknown.isError && unknown.content[0].text === "Unknown tool no_such_tool.", "unknown tool");

await client.close();
console.log(`ok ${mode}: ${exported.path}`);
process.exit(0);
