// The reference for the control server benchmark: a stateless Streamable HTTP server built on
// the MCP SDK's own McpServer, answering JSON (no event streams), with a bearer check.
//   node sdk_server.mjs PORT TOKEN   (prints "listening PORT" once ready)
import http from "node:http";
import { McpServer } from "@modelcontextprotocol/sdk/server/mcp.js";
import { StreamableHTTPServerTransport } from "@modelcontextprotocol/sdk/server/streamableHttp.js";

const [port, token] = process.argv.slice(2);

const server = http.createServer(async (req, res) => {
  if (req.headers.authorization !== `Bearer ${token}`) {
    res.writeHead(401).end();
    return;
  }
  const chunks = [];
  for await (const chunk of req) chunks.push(chunk);
  const body = JSON.parse(Buffer.concat(chunks).toString("utf8"));
  const mcp = new McpServer({ name: "reference", version: "1.0.0" });
  const transport = new StreamableHTTPServerTransport({
    sessionIdGenerator: undefined,
    enableJsonResponse: true,
  });
  res.on("close", () => {
    transport.close();
    mcp.close();
  });
  await mcp.connect(transport);
  await transport.handleRequest(req, res, body);
});
server.keepAliveTimeout = 60000;
// Port 0 picks a free one; the caller reads it from the first line.
server.listen(Number(port), "127.0.0.1", () => console.log(`listening ${server.address().port}`));
