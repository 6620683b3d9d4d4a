// Drives `unbulk mcp` through the official MCP TypeScript SDK client, as an
// agent would: connect over stdio, list the tools, check their schemas, call
// them. Any protocol or schema error, or an unexpected answer, fails the run.
//
// usage: node client.mjs <unbulk binary> <temporary home>
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";

const [binary, home] = process.argv.slice(2);
assert.ok(binary && home, "usage: node client.mjs <unbulk binary> <temporary home>");

// A file for clean_storage's dry run, and an npm cache for the scan to find.
const junk = path.join(home, "junk", "old.log");
fs.mkdirSync(path.dirname(junk), { recursive: true });
fs.writeFileSync(junk, "x".repeat(4096));
fs.mkdirSync(path.join(home, ".npm", "_cacache"), { recursive: true });
fs.writeFileSync(path.join(home, ".npm", "_cacache", "blob"), "y".repeat(8192));

const transport = new StdioClientTransport({
  command: binary,
  args: ["mcp"],
  env: { HOME: home, XDG_DATA_HOME: path.join(home, ".local", "share"), PATH: process.env.PATH ?? "" },
  stderr: "inherit",
});
const client = new Client({ name: "unbulk-test-client", version: "1.0.0" });
await client.connect(transport);

const version = client.getServerVersion();
assert.equal(version?.name, "unbulk");

await client.ping();

const { tools } = await client.listTools();
const names = tools.map((tool) => tool.name);
for (const tool of tools) {
  assert.equal(tool.inputSchema.type, "object", `${tool.name}: schema type`);
  assert.equal(typeof tool.description, "string");
  for (const required of tool.inputSchema.required ?? []) {
    assert.ok(required in tool.inputSchema.properties, `${tool.name}: required ${required} is a property`);
  }
}
for (const expected of ["scan_storage", "clean_storage", "inspect_directory", "list_apps", "uninstall_app",
                        "get_system_vitals", "list_rules", "register_rule", "inspect_anomalies"]) {
  assert.ok(names.includes(expected), `tools/list offers ${expected}`);
}

// Every tool result is one text item; the JSON ones parse.
async function callJson(name, args) {
  const result = await client.callTool({ name, arguments: args });
  assert.equal(result.isError, false, `${name}: ${result.content?.[0]?.text}`);
  assert.equal(result.content.length, 1);
  assert.equal(result.content[0].type, "text");
  return JSON.parse(result.content[0].text);
}

const scan = await callJson("scan_storage", { categories: ["DEVELOPER_CACHE"] });
assert.ok(scan.items.some((item) => item.path.startsWith(path.join(home, ".npm"))), "the npm cache is found");

const rules = await callJson("list_rules", {});
assert.ok(Array.isArray(rules) && rules.length > 0);
assert.deepEqual([...rules.map((r) => r.id)].sort(), rules.map((r) => r.id));

const dryRun = await callJson("clean_storage", { paths: [junk] });
assert.equal(dryRun.isDryRun, true);
assert.equal(dryRun.records[0].status, "SIMULATED");
assert.ok(fs.existsSync(junk), "a dry run touches nothing");

const anomalies = await callJson("inspect_anomalies", { min_size_mb: 0 });
assert.ok(Array.isArray(anomalies));

const node = await callJson("inspect_directory", { path: path.join(home, "junk"), depth: 1 });
assert.equal(node.children[0].name, "old.log");
const vitals = await callJson("get_system_vitals", {});
assert.ok(vitals.memory.totalBytes > 0);
const apps = await callJson("list_apps", { include_leftovers: false });
assert.deepEqual(apps.leftovers, []);
const notFound = await client.callTool({ name: "uninstall_app", arguments: { bundle_id_or_name: "No Such App" } });
assert.equal(notFound.isError, true);

const unknown = await client.callTool({ name: "no_such_tool", arguments: {} });
assert.equal(unknown.isError, true);

await client.close();
console.log(`mcp client: ${names.length} tools, all calls answered`);
