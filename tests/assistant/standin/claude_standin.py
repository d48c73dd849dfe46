#!/usr/bin/env python3
"""A stand-in for the `claude` CLI in stream-json mode, for the engine's tests.

It checks its command line the way the real CLI does (an unknown option ends it with an error),
appends its arguments as one JSON line to $STANDIN_LOG, answers the control requests and plays
recorded stream-json for each user turn. The turn's text picks the recording:

  tools   text in a block, a ToolSearch and a list_recordings call, then text across two blocks
  wait    starts streaming and waits for an interrupt
  crash   starts streaming, writes an error and exits with status 3
  fail    a result with errors
  other   a short reply

Resuming "gone-session" fails the way the CLI does when a session isn't there anymore.
$STANDIN_MCP says how Quillo's server fares: "connects" (pending for two mcp_status requests,
then connected), "fails" (pending for two, then failed) or "pending" (never connects).
"""

import json
import os
import sys

KNOWN = {
    "--input-format": 1, "--output-format": 1, "--verbose": 0, "--include-partial-messages": 0,
    "--mcp-config": 1, "--strict-mcp-config": 0, "--tools": 1, "--allowedTools": 1,
    "--setting-sources": 1, "--append-system-prompt": 1, "--permission-mode": 1, "--model": 1,
    "--effort": 1, "--resume": 1,
}


def fail(text):
    sys.stderr.write(text + "\n")
    sys.exit(1)


def check_arguments(args):
    options = {}
    i = 0
    while i < len(args):
        name = args[i]
        if name not in KNOWN:
            fail("error: unknown option '%s'" % name)
        count = KNOWN[name]
        if i + count >= len(args) + (0 if count else 1):
            fail("error: option '%s' argument missing" % name)
        options[name] = args[i + 1] if count else True
        i += 1 + count
    config = json.loads(options["--mcp-config"])
    if list(config["mcpServers"]) != ["quillo"]:
        fail("error: unexpected MCP servers")
    return options


ARGS = sys.argv[1:]
OPTIONS = check_arguments(ARGS)
with open(os.environ["STANDIN_LOG"], "a") as log:
    log.write(json.dumps(ARGS) + "\n")

SESSION = OPTIONS.get("--resume", "standin-session-1")
if SESSION == "gone-session":
    sys.stdout.write(json.dumps({"type": "result", "subtype": "error_during_execution",
                                 "is_error": True, "session_id": SESSION, "errors": [
                                     "No conversation found with session ID: " + SESSION]}) + "\n")
    sys.stdout.flush()
    fail("No conversation found with session ID: " + SESSION)
MCP = os.environ.get("STANDIN_MCP", "connects")
polls = 0


def send(obj):
    sys.stdout.write(json.dumps(obj) + "\n")
    sys.stdout.flush()


def quillo_status():
    if MCP == "pending" or polls <= 2:
        return "pending"
    return "connected" if MCP == "connects" else "failed"


def answer(request_id, body):
    send({"type": "control_response",
          "response": {"subtype": "success", "request_id": request_id, "response": body}})


def stream(event):
    send({"type": "stream_event", "event": event, "session_id": SESSION})


def text_block(index, parts):
    stream({"type": "content_block_start", "index": index,
            "content_block": {"type": "text", "text": ""}})
    for part in parts:
        stream({"type": "content_block_delta", "index": index,
                "delta": {"type": "text_delta", "text": part}})
    stream({"type": "content_block_stop", "index": index})


def result(subtype="success", is_error=False, errors=None):
    body = {"type": "result", "subtype": subtype, "is_error": is_error, "session_id": SESSION}
    if errors is not None:
        body["errors"] = errors
    send(body)


def play(text):
    send({"type": "system", "subtype": "init", "session_id": SESSION, "cwd": os.getcwd(),
          "mcp_servers": [{"name": "quillo", "status": quillo_status()}]})
    if text == "tools":
        stream({"type": "message_start", "message": {"id": "msg_1"}})
        text_block(0, ["Let me ", "look."])
        send({"type": "assistant", "message": {"id": "msg_1", "content": [
            {"type": "text", "text": "Let me look."},
            {"type": "tool_use", "id": "toolu_0", "name": "ToolSearch",
             "input": {"query": "recordings"}},
            {"type": "tool_use", "id": "toolu_1", "name": "mcp__quillo__list_recordings",
             "input": {}}]}})
        send({"type": "user", "message": {"content": [
            {"type": "tool_result", "tool_use_id": "toolu_0", "content": "found"}]}})
        send({"type": "user", "message": {"content": [
            {"type": "tool_result", "tool_use_id": "toolu_1", "is_error": False,
             "content": [{"type": "text", "text": "[]"}]}]}})
        stream({"type": "message_start", "message": {"id": "msg_2"}})
        text_block(0, ["You have ", "no recordings."])
        text_block(1, ["Record one?"])
        stream({"type": "message_stop"})
        result()
    elif text == "wait":
        stream({"type": "message_start", "message": {"id": "msg_w"}})
        text_block(0, ["Working"])
        send({"type": "assistant", "message": {"id": "msg_w", "content": [
            {"type": "tool_use", "id": "toolu_w", "name": "mcp__quillo__start_recording",
             "input": {"source": "display"}}]}})
        waiting["turn"] = True
    elif text == "crash":
        stream({"type": "message_start", "message": {"id": "msg_c"}})
        text_block(0, ["Half a"])
        sys.stderr.write("Error: the stand-in lost its connection.\n    at fake (standin.js:1)\n")
        sys.stderr.flush()
        sys.exit(3)
    elif text == "fail":
        result("error_during_execution", True, ["boom", "and more"])
    else:
        stream({"type": "message_start", "message": {"id": "msg_o"}})
        text_block(0, ["Hello again."])
        result()


waiting = {"turn": False}
for line in sys.stdin:
    message = json.loads(line)
    if message["type"] == "control_request":
        subtype = message["request"]["subtype"]
        if subtype == "initialize":
            answer(message["request_id"], {"models": [
                {"value": "default", "displayName": "Default (recommended)",
                 "supportedEffortLevels": ["low", "high"]},
                {"value": "haiku", "displayName": "Haiku"}]})
        elif subtype == "mcp_status":
            polls += 1
            answer(message["request_id"], {"mcpServers": [
                {"name": "quillo", "status": quillo_status()}]})
        elif subtype == "interrupt":
            answer(message["request_id"], {})
            if waiting["turn"]:
                waiting["turn"] = False
                send({"type": "user", "message": {"content": [
                    {"type": "tool_result", "tool_use_id": "toolu_w", "is_error": True,
                     "content": "interrupted"}]}})
                result("error_during_execution", True, ["Request was aborted."])
        else:
            send({"type": "control_response", "response": {
                "subtype": "error", "request_id": message["request_id"],
                "error": "unknown request " + subtype}})
    elif message["type"] == "user":
        play(message["message"]["content"][0]["text"])
