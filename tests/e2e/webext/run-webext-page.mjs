// usage: node run-webext-page.mjs --browser chromium|firefox --page PAGE --expected FILE --out DIR
//          --host PROGRAM --sim PROGRAM --webext DIR [--timeout-ms N] [--driver DRIVER_SH] [--prefix TEXT]
// One page in headless Chromium or Firefox through the extension and the host, against kestrix-sim,
// with a private home, profile and host manifest. The page is served on 127.0.0.1 (the allowed
// origin) and 127.0.0.2 and gets other=<that origin> and body=<length>:<sha-256 of /sim/body> in its
// query; "E2E-ACTION: kill-host" kills this browser's hosts. --driver: an Xvfb display of its own and
// driver.sh, whose answers come back as window.e2eDriven(ID, ANSWER); the query also gets
// home=<the private home> and big=<length>:<sha-256> of ~/e2e/big.bin.
import { spawn, spawnSync } from 'node:child_process';
import { createHash, randomFillSync } from 'node:crypto';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import puppeteer from 'puppeteer-core';

const HOST_NAME = 'com.corvane.web_host';
const CHROMIUM_ID = 'hgmhiidacimnllndpadclcaonnhacgla';
const GECKO_ID = 'corvane-web@corvane.example';
const BODY_BYTES = 5 * 1024 * 1024;
const BIG_BYTES = 50 * 1024 * 1024;
const children = [];

const opts = { 'timeout-ms': '60000', prefix: 'E2E: ' };
for (let i = 2; i < process.argv.length; i += 2) opts[process.argv[i].replace(/^--/, '')] = process.argv[i + 1];
for (const need of ['browser', 'page', 'expected', 'out', 'host', 'sim', 'webext'])
  if (!opts[need]) fail(`--${need} is missing`, 2);

function fail(text, status = 1) {
  console.error('run-webext-page: ' + text);
  process.exit(status);
}

const out = path.resolve(opts.out);
fs.rmSync(out, { recursive: true, force: true });
const [home, profile, driveFile] = ['home', 'profile', 'drive.txt'].map((name) => path.join(out, name));
fs.mkdirSync(home, { recursive: true });
fs.mkdirSync(profile, { recursive: true });
const env = { ...process.env, HOME: home };
for (const name of ['XDG_DATA_HOME', 'XDG_CONFIG_HOME']) delete env[name];

function serve(root, address) {
  const server = http.createServer((request, response) => {
    const name = path.normalize(decodeURIComponent(new URL(request.url, 'http://x').pathname)).replace(/^\/+/, '');
    const file = path.join(root, name);
    if (!file.startsWith(root) || !fs.existsSync(file) || !fs.statSync(file).isFile()) return response.writeHead(404).end();
    const type = { '.js': 'text/javascript', '.css': 'text/css' }[path.extname(file)] || 'text/html; charset=utf-8';
    response.writeHead(200, { 'Content-Type': type }).end(fs.readFileSync(file));
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

async function main() {
  const sim = spawn(opts.sim, ['--exit-with-parent', '--quiet'], { env, stdio: ['ignore', 'pipe', 'inherit'] });
  children.push(sim);
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
  for (let i = 0; i < 100 && !fs.existsSync(uriFile); i++) await new Promise((r) => setTimeout(r, 50));
  const key = fs.readFileSync(uriFile, 'utf8').split('\n')[1];
  const body = await (await fetch(`${simUrl}/sim/body?bytes=${BODY_BYTES}`, { headers: { 'Authorization-key': key } })).arrayBuffer();
  const bodyHash = createHash('sha256').update(Buffer.from(body)).digest('hex');

  let driver = null;
  let bigQuery = '';
  if (opts.driver) {
    const xvfb = spawn('Xvfb', ['-displayfd', '3', '-nolisten', 'tcp', '-screen', '0', '1280x1024x24'],
      { stdio: ['ignore', 'ignore', 'ignore', 'pipe'] });
    children.push(xvfb);
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
    driver = spawn(path.resolve(opts.driver), [], { env: { ...env, E2E_CONSOLE: driveFile }, cwd: home, detached: true,
      stdio: ['ignore', fs.openSync(path.join(out, 'driver.txt'), 'w'), 'inherit'] });
  }

  const pageDir = path.dirname(path.resolve(opts.page));
  const allowed = await serve(pageDir, '127.0.0.1');
  const other = await serve(pageDir, '127.0.0.2');
  const [allowedOrigin, otherOrigin] = [allowed, other].map((s) => `http://${s.address().address}:${s.address().port}`);

  // The extension as shipped, with this run's origin as its preset.
  const ext = path.join(out, 'extension');
  fs.cpSync(path.resolve(opts.webext), ext, { recursive: true });
  fs.writeFileSync(path.join(ext, 'preset-origins.json'), JSON.stringify([allowedOrigin]));

  const manifest = { name: HOST_NAME, description: 'Corvane Web host', path: fs.realpathSync(opts.host), type: 'stdio' };
  let browser;
  if (opts.browser === 'chromium') {
    fs.mkdirSync(path.join(profile, 'NativeMessagingHosts'), { recursive: true });
    fs.writeFileSync(path.join(profile, 'NativeMessagingHosts', HOST_NAME + '.json'),
      JSON.stringify({ ...manifest, allowed_origins: [`chrome-extension://${CHROMIUM_ID}/`] }));
    browser = await puppeteer.launch({ executablePath: '/usr/lib/chromium/chromium', headless: true, pipe: true, env,
      ignoreDefaultArgs: ['--disable-extensions'],
      args: ['--no-sandbox', `--user-data-dir=${profile}`, `--load-extension=${ext}`, `--disable-extensions-except=${ext}`] });
  } else {
    const hosts = path.join(home, '.mozilla', 'native-messaging-hosts');
    fs.mkdirSync(hosts, { recursive: true });
    fs.writeFileSync(path.join(hosts, HOST_NAME + '.json'), JSON.stringify({ ...manifest, allowed_extensions: [GECKO_ID] }));
    browser = await puppeteer.launch({ browser: 'firefox', executablePath: '/usr/bin/firefox-esr', headless: true, env, userDataDir: profile });
    await browser.installExtension(ext);
  }

  const lines = [];
  let verdict = null;
  const page = await browser.newPage();
  const browserPid = browser.process().pid;
  // A preload script keeps the console lines, as console events of a page
  // that is still loading can be missed.
  await page.evaluateOnNewDocument(() => {
    const kept = [];
    Object.defineProperty(window, '__e2eLines', { value: kept });
    const log = console.log.bind(console);
    console.log = (...args) => {
      kept.push(args.map(String).join(' '));
      log(...args);
    };
  });
  function heard(text) {
    if (text === 'E2E-ACTION: kill-host') {
      for (const pid of hostProcesses(browserPid)) process.kill(pid, 'SIGKILL');
      return;
    }
    if (text.startsWith('DRIVE: ')) {
      fs.appendFileSync(driveFile, text + '\n');
      const id = text.slice(7).split('|')[0];
      const answerFile = path.join(home, '.e2e-driver', id);
      const poll = setInterval(() => {
        if (!fs.existsSync(answerFile)) return;
        const answer = fs.readFileSync(answerFile, 'utf8').trim();
        if (!answer) return;
        clearInterval(poll);
        page.evaluate((i, a) => window.e2eDriven && window.e2eDriven(i, a), id, answer).catch(() => {});
      }, 50);
      return;
    }
    lines.push(text);
    if (text.startsWith('VERDICT: ') && !verdict) verdict = text;
  }
  page.on('pageerror', (error) => lines.push('page error: ' + error.message));

  // The content scripts are registered when the extension starts: give it a moment.
  const homeQuery = opts.driver ? `&home=${encodeURIComponent(home)}` : '';
  const query = `other=${encodeURIComponent(otherOrigin)}&body=${BODY_BYTES}:${bodyHash}${bigQuery}${homeQuery}`;
  const target = `${allowedOrigin}/${path.basename(opts.page)}?${query}`;
  const deadline = Date.now() + Number(opts['timeout-ms']);
  for (let attempt = 0; ; attempt++) {
    await page.goto(target);
    if ((await page.evaluate(() => 'corvaneWeb' in window)) || attempt > 50) break;
    await new Promise((r) => setTimeout(r, 100));
  }
  while (!verdict && Date.now() < deadline) {
    (await page.evaluate(() => (window.__e2eLines ? window.__e2eLines.splice(0) : [])).catch(() => [])).forEach(heard);
    await new Promise((r) => setTimeout(r, 50));
  }
  await browser.close().catch(() => {});
  allowed.close();
  other.close();
  try {
    if (driver) process.kill(-driver.pid, 'SIGTERM');
  } catch (e) {}
  for (const child of children) child.kill('SIGTERM');

  fs.writeFileSync(path.join(out, 'console.txt'), lines.join('\n') + '\n');
  fs.writeFileSync(path.join(out, 'actual.txt'), lines.filter((l) => l.startsWith(opts.prefix)).map((l) => l + '\n').join(''));
  const diff = spawnSync('diff', ['-u', '--label', 'expected', '--label', 'actual', opts.expected, path.join(out, 'actual.txt')], { encoding: 'utf8' });
  if (diff.status === 0 && verdict === 'VERDICT: PASS') process.exit(0);
  console.error(diff.stdout + 'run-webext-page: verdict: ' + (verdict || 'none (timed out)'));
  fail('everything the page printed:\n' + lines.map((l) => '  | ' + l).join('\n'));
}

main().catch((e) => fail(e.stack || String(e)));
