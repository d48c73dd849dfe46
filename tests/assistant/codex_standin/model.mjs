// A stand-in for a model provider's Responses API on the loopback interface, for tests of the
// Codex engine. Prints "PORT <n>" once it listens; each request's JSON body is appended to the
// log file given as the first argument. What it answers depends on the user's last message:
//   "list ..."  -> streams "Let me look." and calls the quillo tool list_recordings; once the
//                  tool's output comes back, streams "You have recordings."
//   "hang ..."  -> streams "Working" and then never finishes (for interrupts)
//   otherwise   -> streams "Hello " "there."
import http from 'node:http';
import fs from 'node:fs';

const log = process.argv[2];
let sequence = 0;

function send(response, type, fields) {
    response.write(`event: ${type}\ndata: ${JSON.stringify({ type, ...fields })}\n\n`);
}

function text(response, id, parts) {
    const item = { type: 'message', id, role: 'assistant', content: [] };
    send(response, 'response.output_item.added', { output_index: 0, item });
    for (const delta of parts) {
        send(response, 'response.output_text.delta', { item_id: id, output_index: 0, content_index: 0, delta });
    }
    const done = { ...item, content: [{ type: 'output_text', text: parts.join(''), annotations: [] }] };
    send(response, 'response.output_item.done', { output_index: 0, item: done });
}

function toolCall(response, { namespace, name }) {
    const item = { type: 'function_call', id: `fc_${sequence}`, call_id: `call_${sequence}`, name, arguments: '{}' };
    if (namespace) item.namespace = namespace;
    send(response, 'response.output_item.added', { output_index: 1, item });
    send(response, 'response.output_item.done', { output_index: 1, item });
}

// Where the request offers a tool: MCP tools come in a namespace per server ("mcp__quillo").
function findTool(body, tool) {
    for (const t of body.tools || []) {
        if (t.type === 'namespace' && (t.tools || []).some((inner) => inner.name === tool)) {
            return { namespace: t.name, name: tool };
        }
        if (t.name && t.name.endsWith(tool)) return { name: t.name };
    }
    return { name: tool };
}

function lastUserText(body) {
    const input = Array.isArray(body.input) ? body.input : [];
    for (let i = input.length - 1; i >= 0; i--) {
        const item = input[i];
        if (item.type === 'function_call_output') return { toolOutput: true };
        if (item.role === 'user') {
            const content = Array.isArray(item.content) ? item.content : [];
            return { text: content.map((c) => c.text || '').join(' ') };
        }
    }
    return { text: '' };
}

const server = http.createServer((request, response) => {
    let raw = '';
    request.on('data', (chunk) => (raw += chunk));
    request.on('end', () => {
        if (log) fs.appendFileSync(log, `${request.method} ${request.url} ${raw}\n`);
        if (request.method !== 'POST' || !request.url.endsWith('/responses')) {
            response.writeHead(404, { 'content-type': 'application/json' });
            response.end('{"error":{"message":"not here"}}');
            return;
        }
        let body = {};
        try {
            body = JSON.parse(raw);
        } catch {
            // an empty body answers like a plain message
        }
        sequence += 1;
        const id = `resp_${sequence}`;
        response.writeHead(200, { 'content-type': 'text/event-stream' });
        send(response, 'response.created', { response: { id } });
        const last = lastUserText(body);
        if (last.toolOutput) {
            text(response, `msg_${sequence}`, ['You have ', 'recordings.']);
        } else if (/\bhang\b/.test(last.text)) {
            text(response, `msg_${sequence}`, ['Working']);
            return;  // never completes
        } else if (/\blist\b/.test(last.text)) {
            text(response, `msg_${sequence}`, ['Let me ', 'look.']);
            toolCall(response, findTool(body, 'list_recordings'));
        } else {
            text(response, `msg_${sequence}`, ['Hello ', 'there.']);
        }
        send(response, 'response.completed', {
            response: { id, usage: { input_tokens: 1, output_tokens: 1, total_tokens: 2,
                                     input_tokens_details: { cached_tokens: 0 },
                                     output_tokens_details: { reasoning_tokens: 0 } } },
        });
        response.end();
    });
});

server.listen(0, '127.0.0.1', () => {
    process.stdout.write(`PORT ${server.address().port}\n`);
});
