// usage: node run-webext-page.mjs --browser chromium|firefox --page PAGE --out DIR --host PROGRAM --sim PROGRAM
//          --webext DIR [--expected FILE] [--timeout-ms N] [--driver DRIVER_SH] [--prefix TEXT]
//          [--sim-args "ARGS"] [--setup SHELL_COMMAND] [--home-query] [--screenshot FILE.png]
// One page in headless Chromium or Firefox through the extension and the host, against kestrix-sim,
// with a private home, profile and host manifest. The page is served on 127.0.0.1 (the allowed
// origin) and 127.0.0.2 and gets other=<that origin> and body=<length>:<sha-256 of /sim/body> in its
// query. Its console lines come back over HTTP (a script put in front of the page's own);
// "E2E-ACTION: kill-host" kills this browser's hosts. --driver: an Xvfb display of its own and
// driver.sh, whose answers come back as window.e2eDriven(ID, ANSWER); the query also gets
// home=<the private home> (as with --home-query) and big=<length>:<sha-256> of ~/e2e/big.bin.
// --setup runs in the private home before the simulator starts.
import { spawn, spawnSync } from 'node:child_process';
import { createHash, randomFillSync } from 'node:crypto';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import WebSocket from 'ws';

const HOST_NAME = 'com.corvane.web_host';
const CHROMIUM_ID = 'hgmhiidacimnllndpadclcaonnhacgla';
const GECKO_ID = 'corvane-web@corvane.example';
const BODY_BYTES = 5 * 1024 * 1024;
const BIG_BYTES = 50 * 1024 * 1024;
// What this runner started, by pid; the browser and the driver lead process
// groups of their own (-pid). On any way out, all of it goes too.
const started = [];
process.on('exit', () => {
  for (const pid of started) {
    try {
      process.kill(pid, 'SIGTERM');
    } catch (e) {}
  }
});

const opts = { 'timeout-ms': '60000', prefix: 'E2E: ' };
for (let i = 2; i < process.argv.length; i++) {
  const name = process.argv[i].replace(/^--/, '');
  const value = process.argv[i + 1];
  opts[name] = value === undefined || value.startsWith('--') ? true : (i++, value);
}
for (const need of ['browser', 'page', 'out', 'host', 'sim', 'webext']) if (!opts[need]) fail(`--${need} is missing`, 2);

function fail(text, status = 1) {
  console.error('run-webext-page: ' + text);
  process.exit(status);
}
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

const out = path.resolve(opts.out);
fs.rmSync(out, { recursive: true, force: true });
const [home, profile, driveFile] = ['home', 'profile', 'drive.txt'].map((name) => path.join(out, name));
fs.mkdirSync(home, { recursive: true });
fs.mkdirSync(profile, { recursive: true });
const env = { ...process.env, HOME: home };
for (const name of ['XDG_DATA_HOME', 'XDG_CONFIG_HOME']) delete env[name];

// Put in front of the page's own scripts: its console lines go to the
// runner in order, and the runner's answer to a "DRIVE:" line comes back
// through window.e2eDriven.
const RELAY = `<script>(() => {
  let sent = Promise.resolve();
  const post = (text) => (sent = sent.then(() => fetch("/.e2e/line", { method: "POST", body: text }).catch(() => {})));
  const log = console.log.bind(console);
  console.log = (...args) => {
    const text = args.map(String).join(" ");
    log(...args);
    post(text);
    if (!text.startsWith("DRIVE: ")) return;
    const id = text.slice(7).split("|")[0];
    sent.then(() => fetch("/.e2e/driven?id=" + encodeURIComponent(id))).then((r) => r.text())
      .then((answer) => window.e2eDriven && window.e2eDriven(id, answer));
  };
  addEventListener("error", (e) => post("page error: " + e.message));
})();</script>`;
// The content scripts are registered once the extension has started: this
// page waits for them before it opens the page under test.
const START = (target) => `<!DOCTYPE html><script>
  const tries = Number(location.hash.slice(1)) || 0;
  if ("corvaneWeb" in window || tries > 300) location.replace(${JSON.stringify(target)});
  else setTimeout(() => { location.hash = tries + 1; location.reload(); }, 100);
</script>`;

function serve(root, address, handle) {
  const server = http.createServer((request, response) => {
    const url = new URL(request.url, 'http://x');
    if (url.pathname.startsWith('/.e2e/')) return handle(url, request, response);
    const name = path.normalize(decodeURIComponent(url.pathname)).replace(/^\/+/, '');
    const file = path.join(root, name);
    if (!file.startsWith(root) || !fs.existsSync(file) || !fs.statSync(file).isFile()) return response.writeHead(404).end();
    const type = { '.js': 'text/javascript', '.css': 'text/css' }[path.extname(file)] || 'text/html; charset=utf-8';
    let body = fs.readFileSync(file);
    if (file === path.resolve(opts.page)) body = String(body).replace(/^(<!DOCTYPE html>)?/i, (doctype) => doctype + RELAY);
    response.writeHead(200, { 'Content-Type': type, 'Cache-Control': 'no-store' }).end(body);
  });
  return new Promise((resolve) => server.listen(0, address, () => resolve(server)));
}

// The host processes under this browser (other runs may have their own).
function hostProcesses(browserPid) {
  const host = fs.realpathSync(opts.host);
  const parent = new Map();
  for (const pid of fs.readdirSync('/proc').filter((e) => /^\d+$/.test(e))) {
    try {
      const stat = fs.readFileSync(`/proc/${pid}/stat`, 'utf8');
      parent.set(Number(pid), Number(stat.slice(stat.lastIndexOf(')') + 2).split(' ')[1]));
    } catch (e) {}
  }
  const under = (pid) => pid > 1 && (parent.get(pid) === browserPid || under(parent.get(pid)));
  return [...parent.keys()].filter((pid) => {
    try {
      return under(pid) && fs.readlinkSync(`/proc/${pid}/exe`) === host;
    } catch (e) {
      return false;
    }
  });
}

// Starts the browser; resolves with the remote-protocol address it prints
// on stderr (all of which goes to browser.txt).
function launch(program, args) {
  const log = fs.openSync(path.join(out, 'browser.txt'), 'w');
  const child = spawn(program, args, { env, detached: true, stdio: ['ignore', log, 'pipe'] });
  started.push(-child.pid);
  return new Promise((resolve, reject) => {
    let text = '';
    child.stderr.on('data', (d) => {
      fs.writeSync(log, d);
      text += d;
      const m = text.match(/(?:DevTools|WebDriver BiDi) listening on (ws:\/\/\S+)/);
      if (m) resolve({ child, address: m[1] });
    });
    child.on('exit', (code) => reject(new Error(`${program} ended (${code}) before it listened`)));
  });
}

// One WebSocket to the browser: call(method, params[, sessionId]) resolves
// with the result of a DevTools or BiDi command.
async function connect(address) {
  const ws = new WebSocket(address, { perMessageDeflate: false, maxPayload: 256 * 1024 * 1024 });
  await new Promise((resolve, reject) => ws.once('open', resolve).once('error', reject));
  const waiting = new Map();
  let next = 0;
  ws.on('message', (data) => {
    const m = JSON.parse(data);
    const done = waiting.get(m.id);
    if (!done) return;
    waiting.delete(m.id);
    if (m.error) done.reject(new Error(`${done.method}: ${m.message || JSON.stringify(m.error)}`));
    else done.resolve(m.result);
  });
  return (method, params = {}, sessionId) =>
    new Promise((resolve, reject) => {
      const id = ++next;
      waiting.set(id, { resolve, reject, method });
      ws.send(JSON.stringify({ id, method, params, ...(sessionId && { sessionId }) }));
    });
}

async function main() {
  if (opts.setup) spawnSync('sh', ['-c', opts.setup], { cwd: home, env, stdio: 'inherit' });
  const simArgs = typeof opts['sim-args'] === 'string' ? opts['sim-args'].split(/\s+/).filter(Boolean) : [];
  const sim = spawn(opts.sim, ['--exit-with-parent', '--quiet', ...simArgs], { env, stdio: ['ignore', 'pipe', 'inherit'] });
  started.push(sim.pid);
  const simUrl = await new Promise((resolve, reject) => {
    let text = '';
    sim.stdout.on('data', (d) => {
      text += d;
      const m = text.match(/listening on (http:\S+)/);
      if (m) resolve(m[1]);
    });
    sim.on('exit', () => reject(new Error('kestrix-sim ended')));
  });
  const uriFile = path.join(home, '.local/share/Corvane/Corvane Kestrix/var/run/http.uri');
  for (let i = 0; i < 100 && !fs.existsSync(uriFile); i++) await sleep(50);
  const key = fs.readFileSync(uriFile, 'utf8').split('\n')[1];
  const body = await (await fetch(`${simUrl}/sim/body?bytes=${BODY_BYTES}`, { headers: { 'Authorization-key': key } })).arrayBuffer();
  const bodyHash = createHash('sha256').update(Buffer.from(body)).digest('hex');

  let bigQuery = '';
  if (opts.driver) {
    const xvfb = spawn('Xvfb', ['-displayfd', '3', '-nolisten', 'tcp', '-screen', '0', '1280x1024x24'],
      { stdio: ['ignore', 'ignore', 'ignore', 'pipe'] });
    started.push(xvfb.pid);
    const display = await new Promise((resolve, reject) => {
      xvfb.stdio[3].on('data', (d) => resolve(':' + String(d).trim()));
      xvfb.on('exit', () => reject(new Error('Xvfb ended')));
    });
    Object.assign(env, { DISPLAY: display, NO_AT_BRIDGE: '1', GIO_USE_VFS: 'local', TZ: 'UTC',
      DBUS_SESSION_BUS_ADDRESS: `unix:path=${home}/.no-session-bus` });
    const big = Buffer.alloc(BIG_BYTES);
    for (let i = 0; i < BIG_BYTES; i += 65536) randomFillSync(big, i, Math.min(65536, BIG_BYTES - i));
    fs.mkdirSync(path.join(home, 'e2e'), { recursive: true });
    fs.writeFileSync(path.join(home, 'e2e', 'big.bin'), big);
    bigQuery = `&big=${BIG_BYTES}:${createHash('sha256').update(big).digest('hex')}`;
    fs.writeFileSync(driveFile, '');
    const driver = spawn(path.resolve(opts.driver), [], { env: { ...env, E2E_CONSOLE: driveFile }, cwd: home, detached: true,
      stdio: ['ignore', fs.openSync(path.join(out, 'driver.txt'), 'w'), 'inherit'] });
    started.push(-driver.pid);
  }

  const lines = [];
  let verdict = null;
  let browserPid = 0;
  function heard(text) {
    if (text === 'E2E-ACTION: kill-host') {
      for (const pid of hostProcesses(browserPid)) process.kill(pid, 'SIGKILL');
    } else if (text.startsWith('DRIVE: ')) {
      fs.appendFileSync(driveFile, text + '\n');
    } else {
      lines.push(text);
      if (text.startsWith('VERDICT: ') && !verdict) verdict = text;
    }
  }
  async function handle(url, request, response) {
    if (url.pathname === '/.e2e/line') {
      let text = '';
      for await (const chunk of request) text += chunk;
      heard(text);
      return response.end();
    }
    if (url.pathname === '/.e2e/driven') {
      const answerFile = path.join(home, '.e2e-driver', path.basename(url.searchParams.get('id') || '.'));
      for (let answer = ''; !response.destroyed; await sleep(50)) {
        answer = fs.existsSync(answerFile) ? fs.readFileSync(answerFile, 'utf8').trim() : '';
        if (answer) return response.end(answer);
      }
      return;
    }
    const homeQuery = opts.driver || opts['home-query'] ? `&home=${encodeURIComponent(home)}` : '';
    const query = `other=${encodeURIComponent(otherOrigin)}&body=${BODY_BYTES}:${bodyHash}${bigQuery}${homeQuery}`;
    response.writeHead(200, { 'Content-Type': 'text/html' }).end(START(`/${path.basename(opts.page)}?${query}`));
  }
  const pageDir = path.dirname(path.resolve(opts.page));
  const allowed = await serve(pageDir, '127.0.0.1', handle);
  const other = await serve(pageDir, '127.0.0.2', handle);
  const [allowedOrigin, otherOrigin] = [allowed, other].map((s) => `http://${s.address().address}:${s.address().port}`);
  const start = `${allowedOrigin}/.e2e/start`;

  // The extension as shipped, with this run's origin as its preset.
  const ext = path.join(out, 'extension');
  fs.cpSync(path.resolve(opts.webext), ext, { recursive: true });
  fs.writeFileSync(path.join(ext, 'preset-origins.json'), JSON.stringify([allowedOrigin]));

  const manifest = { name: HOST_NAME, description: 'Corvane Web host', path: fs.realpathSync(opts.host), type: 'stdio' };
  let browser, call, screenshot;
  if (opts.browser === 'chromium') {
    fs.mkdirSync(path.join(profile, 'NativeMessagingHosts'), { recursive: true });
    fs.writeFileSync(path.join(profile, 'NativeMessagingHosts', HOST_NAME + '.json'),
      JSON.stringify({ ...manifest, allowed_origins: [`chrome-extension://${CHROMIUM_ID}/`] }));
    // Quiet: no background services, and no name looked up outside.
    const launched = await launch('/usr/lib/chromium/chromium', ['--headless=new', '--no-sandbox',
      `--user-data-dir=${profile}`, `--load-extension=${ext}`, `--disable-extensions-except=${ext}`,
      '--no-first-run', '--no-default-browser-check', '--disable-background-networking', '--disable-component-update',
      '--disable-sync', '--disable-domain-reliability',
      '--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1, EXCLUDE 127.0.0.2', '--remote-debugging-port=0', '--window-size=1280,1024', start]);
    browser = launched.child;
    screenshot = async () => {
      call = await connect(launched.address);
      const { targetInfos } = await call('Target.getTargets');
      const { targetId } = targetInfos.find((t) => t.type === 'page' && t.url.startsWith(allowedOrigin));
      const { sessionId } = await call('Target.attachToTarget', { targetId, flatten: true });
      return (await call('Page.captureScreenshot', {}, sessionId)).data;
    };
  } else {
    const hosts = path.join(home, '.mozilla', 'native-messaging-hosts');
    fs.mkdirSync(hosts, { recursive: true });
    fs.writeFileSync(path.join(hosts, HOST_NAME + '.json'), JSON.stringify({ ...manifest, allowed_extensions: [GECKO_ID] }));
    // Quiet too: its remote settings come from nowhere, and every name
    // resolves to 127.0.0.1 without a lookup.
    const prefs = { 'services.settings.server': 'data:,#none/v1', 'network.dns.native-is-localhost': true,
      'network.dns.disablePrefetch': true, 'network.trr.mode': 5 };
    fs.writeFileSync(path.join(profile, 'user.js'),
      Object.entries(prefs).map(([name, value]) => `user_pref(${JSON.stringify(name)}, ${JSON.stringify(value)});\n`).join(''));
    const launched = await launch('/usr/bin/firefox-esr', ['--headless', '--no-remote', '--profile', profile,
      '--remote-debugging-port', '0']);
    browser = launched.child;
    call = await connect(launched.address + '/session');
    await call('session.new', { capabilities: {} });
    await call('webExtension.install', { extensionData: { type: 'path', path: ext } });
    const context = (await call('browsingContext.getTree', {})).contexts[0].context;
    await call('browsingContext.navigate', { context, url: start });
    screenshot = async () => (await call('browsingContext.captureScreenshot', { context })).data;
  }
  browserPid = browser.pid;

  const deadline = Date.now() + Number(opts['timeout-ms']);
  while (!verdict && Date.now() < deadline && browser.exitCode === null) await sleep(50);
  if (opts.screenshot) fs.writeFileSync(opts.screenshot, Buffer.from(await screenshot(), 'base64'));
  allowed.close();
  other.close();

  fs.writeFileSync(path.join(out, 'console.txt'), lines.join('\n') + '\n');
  fs.writeFileSync(path.join(out, 'actual.txt'), lines.filter((l) => l.startsWith(opts.prefix)).map((l) => l + '\n').join(''));
  const diff = opts.expected
    ? spawnSync('diff', ['-u', '--label', 'expected', '--label', 'actual', opts.expected, path.join(out, 'actual.txt')], { encoding: 'utf8' })
    : { status: 0, stdout: '' };
  if (diff.status === 0 && verdict === 'VERDICT: PASS') process.exit(0);
  console.error(diff.stdout + 'run-webext-page: verdict: ' + (verdict || 'none (timed out)'));
  fail('everything the page printed:\n' + lines.map((l) => '  | ' + l).join('\n'));
}

main().catch((e) => fail(e.stack || String(e)));
