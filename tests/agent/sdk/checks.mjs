// The checks both SDK scripts make: a failure prints why and ends the script with exit 1.
export function fail(message) {
  console.error(message);
  process.exit(1);
}

export function check(condition, message) {
  if (!condition) fail(message);
}

// The JSON object of a successful tool result.
export function json(result, what) {
  check(!result.isError, `${what} failed: ${JSON.stringify(result.content)}`);
  return JSON.parse(result.content[0].text);
}
