// A stand-in for the Tallowbrook application's MCP endpoint, built from the official MCP SDK:
// McpServer + StreamableHTTPServerTransport, stateless, JSON answers, a bearer-token check.
// Imported by the SDK test; run directly (`node app_server.mjs`) by bench/mcp-bridge, it prints
// {"port":N} on one line and serves until standard input closes.
import http from 'node:http';

import { McpServer } from '@modelcontextprotocol/sdk/server/mcp.js';
import { StreamableHTTPServerTransport } from '@modelcontextprotocol/sdk/server/streamableHttp.js';
import { RootsListChangedNotificationSchema } from '@modelcontextprotocol/sdk/types.js';
import { z } from 'zod';

export const FAILING_TOOL_MESSAGE = 'the tool failed on purpose';

// `bytes` characters of varied printable text.
export function bigText(bytes) {
  const pattern = 'Tallowbrook archive \u00e9 0123456789 /\\"\n';
  let text = '';
  while (text.length < bytes) text += pattern;
  return text.slice(0, bytes);
}

function buildServer(state) {
  const server = new McpServer({ name: 'tallowbrook-test-app', version: '1.0.0' });
  server.registerTool(
    'echo',
    { description: 'Returns its text unchanged', inputSchema: { text: z.string() } },
    async ({ text }) => ({ content: [{ type: 'text', text }] }),
  );
  server.registerTool(
    'big',
    { description: 'Returns `bytes` characters of text', inputSchema: { bytes: z.number().int() } },
    async ({ bytes }) => ({ content: [{ type: 'text', text: bigText(bytes) }] }),
  );
  server.registerTool('fail', { description: 'Always throws' }, async () => {
    throw new Error(FAILING_TOOL_MESSAGE);
  });
  server.server.oninitialized = () => state.notifications.push('notifications/initialized');
  server.server.setNotificationHandler(RootsListChangedNotificationSchema, () => {
    state.notifications.push('notifications/roots/list_changed');
  });
  return server;
}

// Starts the app on 127.0.0.1 (`port` 0: any free port). `token` is the bearer token it expects.
// Returns { port, url, notifications, setToken(t), setSharing(on), close() }.
export async function startAppServer({ token, port = 0 }) {
  const state = { token, sharing: true, notifications: [] };
  const sockets = new Set();
  const httpServer = http.createServer(async (req, res) => {
    if (req.url !== '/mcp') {
      res.writeHead(404).end();
      return;
    }
    if (!state.sharing) {
      res.writeHead(503).end();
      return;
    }
    if (req.headers.authorization !== `Bearer ${state.token}`) {
      res.writeHead(401).end();
      return;
    }
    // Stateless: a fresh server and transport for every request.
    const server = buildServer(state);
    const transport = new StreamableHTTPServerTransport({
      sessionIdGenerator: undefined,
      enableJsonResponse: true,
    });
    res.on('close', () => {
      transport.close();
      server.close();
    });
    try {
      await server.connect(transport);
      await transport.handleRequest(req, res);
    } catch (error) {
      if (!res.headersSent) res.writeHead(500).end(String(error));
    }
  });
  httpServer.on('connection', (socket) => {
    sockets.add(socket);
    socket.on('close', () => sockets.delete(socket));
  });
  await new Promise((resolve, reject) => {
    httpServer.once('error', reject);
    httpServer.listen(port, '127.0.0.1', resolve);
  });
  const actualPort = httpServer.address().port;
  return {
    port: actualPort,
    url: `http://127.0.0.1:${actualPort}/mcp`,
    notifications: state.notifications,
    setToken(newToken) {
      state.token = newToken;
    },
    setSharing(on) {
      state.sharing = on;
    },
    // Stops listening and drops every connection, as a quitting app does.
    async close() {
      const closed = new Promise((resolve) => httpServer.close(resolve));
      for (const socket of sockets) socket.destroy();
      await closed;
    },
  };
}

if (import.meta.url === `file://${process.argv[1]}`) {
  const app = await startAppServer({ token: process.env.TALLOWBROOK_MCP_TOKEN ?? '' });
  process.stdout.write(`${JSON.stringify({ port: app.port })}\n`);
  process.stdin.resume();
  process.stdin.on('end', async () => {
    await app.close();
    process.exit(0);
  });
}
