// The official MCP SDK on both sides of mcp-bridge: an SDK Client talks to the bridge over
// stdio (StdioClientTransport spawns it), and the bridge posts to an SDK server on 127.0.0.1.
import assert from 'node:assert/strict';
import net from 'node:net';
import { test } from 'node:test';

import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { McpError } from '@modelcontextprotocol/sdk/types.js';

import { FAILING_TOOL_MESSAGE, bigText, startAppServer } from './app_server.mjs';

const helper = process.env.TALLOWBROOK_HELPER;
assert.ok(helper, 'TALLOWBROOK_HELPER must name the built tallowbrook-helper');

const TOKEN = 'tb-test-token/with+symbols=';
const SHARING_OFF = 'Sharing with AI apps is switched off in Tallowbrook.';
const REFUSED_TOKEN =
  "Tallowbrook refused the token. Copy the Claude Desktop setup again from Tallowbrook's " +
  'Settings; the token was probably replaced.';
const UNREACHABLE =
  /^Tallowbrook is not reachable \(.+\)\. Open the app and check Settings \u2192 Answering \u2192 Claude and other AI apps\.$/;

// Starts the bridge for `url` through the SDK's stdio transport and initializes.
async function connectThroughBridge(url, env = { TALLOWBROOK_MCP_TOKEN: TOKEN }) {
  const transport = new StdioClientTransport({
    command: helper,
    args: ['mcp-bridge', url],
    env,
    stderr: 'pipe',
  });
  let stderr = '';
  transport.stderr.on('data', (chunk) => (stderr += chunk));
  const client = new Client(
    { name: 'tallowbrook-sdk-test', version: '1.0.0' },
    { capabilities: { roots: { listChanged: true } } },
  );
  await client.connect(transport);
  // Every message the bridge prints from here on, as the client receives it.
  const received = [];
  const deliver = transport.onmessage;
  transport.onmessage = (message) => {
    received.push(message);
    deliver(message);
  };
  // The SDK keeps the spawned process in `_process`; the test reads its exit status from it.
  const child = transport._process;
  return { client, transport, child, received, stderr: () => stderr };
}

// Expects `promise` to reject with the bridge's JSON-RPC error carrying `message`.
async function rejectsWith(promise, message) {
  await assert.rejects(promise, (error) => {
    assert.ok(error instanceof McpError, `not an McpError: ${error}`);
    assert.equal(error.code, -32000);
    const text = error.message.replace(/^MCP error -32000: /, '');
    if (message instanceof RegExp) assert.match(text, message);
    else assert.equal(text, message);
    return true;
  });
}

function isRunning(pid) {
  try {
    process.kill(pid, 0);
    return true;
  } catch {
    return false;
  }
}

async function freePort() {
  const server = net.createServer();
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

test('initialize, tools/list, tools/call, ping and notifications pass through the bridge', async () => {
  const app = await startAppServer({ token: TOKEN });
  const { client, child, received, stderr } = await connectThroughBridge(app.url);
  try {
    assert.equal(client.getServerVersion().name, 'tallowbrook-test-app');
    assert.ok(client.getServerCapabilities().tools);

    const { tools } = await client.listTools();
    assert.deepEqual(tools.map((tool) => tool.name).sort(), ['big', 'echo', 'fail']);

    const texts = [
      'plain',
      'na\u00efve \u2014 \u65e5\u672c\u8a9e \ud83c\udf89 \u0645\u0631\u062d\u0628\u0627',
      'a/b/c and \\/ and </script>',
      'line one\nline two\r\nline three\n\n',
      'controls \u0000\u0001\u0007\u001b\u001f\u007f and separators \u2028\u2029 end',
      '{"looks":"like json"}\n{"id":1}',
    ];
    for (const text of texts) {
      const result = await client.callTool({ name: 'echo', arguments: { text } });
      assert.equal(result.isError, undefined);
      assert.deepEqual(result.content, [{ type: 'text', text }]);
    }

    const big = await client.callTool({ name: 'big', arguments: { bytes: 1024 * 1024 } });
    assert.equal(big.content[0].text.length, 1024 * 1024);
    assert.ok(big.content[0].text === bigText(1024 * 1024));

    const failed = await client.callTool({ name: 'fail', arguments: {} });
    assert.equal(failed.isError, true);
    assert.match(failed.content[0].text, new RegExp(FAILING_TOOL_MESSAGE));

    assert.deepEqual(await client.ping(), {});

    // A notification gets nothing back: the only message after it is the ping's answer.
    const before = received.length;
    await client.notification({ method: 'notifications/roots/list_changed' });
    await client.ping();
    assert.equal(received.length, before + 1);
    assert.deepEqual(received[before].result, {});
    assert.deepEqual(app.notifications, [
      'notifications/initialized',
      'notifications/roots/list_changed',
    ]);
  } finally {
    await client.close();
    await app.close();
  }
  assert.equal(child.exitCode, 0, 'the bridge ends with status 0 when its input closes');
  assert.equal(stderr(), '');
});

test('error paths reach the client as JSON-RPC errors and the bridge keeps running', async () => {
  let app = await startAppServer({ token: TOKEN });
  const { client, transport, child, received } = await connectThroughBridge(app.url);
  const echo = (text) => client.callTool({ name: 'echo', arguments: { text } });
  try {
    assert.equal((await echo('before')).content[0].text, 'before');

    app.setSharing(false);
    await rejectsWith(echo('sharing off'), SHARING_OFF);
    await rejectsWith(client.listTools(), SHARING_OFF);
    app.setSharing(true);

    app.setToken('a-replaced-token');
    await rejectsWith(echo('wrong token'), REFUSED_TOKEN);
    app.setToken(TOKEN);

    const port = app.port;
    await app.close();
    await rejectsWith(echo('app quit'), UNREACHABLE);
    await rejectsWith(client.ping(), UNREACHABLE);
    // A notification while the app is away gets nothing.
    await client.notification({ method: 'notifications/roots/list_changed' });

    app = await startAppServer({ token: TOKEN, port });
    assert.equal((await echo('after')).content[0].text, 'after');
    // Every message that came back answered a request of the client's; none had a null id.
    assert.ok(received.every((message) => message.id !== null && message.id !== undefined));
    assert.equal(received.length, 7);
    assert.ok(isRunning(transport.pid), 'the bridge is still running');
    assert.equal(child.exitCode, null);
  } finally {
    await client.close();
    await app.close();
  }
  assert.equal(child.exitCode, 0);
});

test('a client that starts while the app is not running gets the not-reachable error', async () => {
  const port = await freePort();
  await rejectsWith(connectThroughBridge(`http://127.0.0.1:${port}/mcp`), UNREACHABLE);
});

test('without TALLOWBROOK_MCP_TOKEN the app refuses the bare bearer word', async () => {
  const app = await startAppServer({ token: TOKEN });
  try {
    await rejectsWith(connectThroughBridge(app.url, {}), REFUSED_TOKEN);
  } finally {
    await app.close();
  }
});
