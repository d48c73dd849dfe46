// Calls one tool with the MCP SDK's client over Streamable HTTP and prints its result as JSON.
//   node call.mjs URL TOKEN TOOL 'ARGUMENTS_JSON'
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StreamableHTTPClientTransport } from "@modelcontextprotocol/sdk/client/streamableHttp.js";

const [url, token, tool, args] = process.argv.slice(2);
const transport = new StreamableHTTPClientTransport(new URL(url), {
  requestInit: { headers: { Authorization: `Bearer ${token}` } },
});
const client = new Client({ name: "quillo-test", version: "1.0.0" });
await client.connect(transport);
const result = await client.callTool({ name: tool, arguments: JSON.parse(args ?? "{}") });
console.log(JSON.stringify(result));
await client.close();
process.exit(result.isError ? 1 : 0);
