// The extension's background: it owns the native port of every page frame
// that asks for one and is the only part that knows the allow-list.
//
// Each frame's relay script connects a runtime port; for it we start one
// host process (connectNative), tell the host the frame's real origin as
// the browser reports it (never what the page claims), and pass messages
// through unchanged both ways. Chunked answers are joined by the relay,
// so a large answer never has to fit in one extension message here.
'use strict';

const api = globalThis.browser ?? globalThis.chrome;
const HOST_NAME = 'com.corvane.web_host';
const PORT_NAME = 'corvane-web';
const SCRIPT_IDS = ['corvane-web-page-api', 'corvane-web-relay'];

function isOrigin(text) {
  try {
    const url = new URL(text);
    return (url.protocol === 'http:' || url.protocol === 'https:') && url.origin === text;
  } catch (e) {
    return false;
  }
}

// The allow-list; on the first start it is seeded from preset-origins.json
// (empty as shipped; a demo set-up may list its own origin there).
async function allowedOrigins() {
  const stored = await api.storage.local.get('allowedOrigins');
  if (Array.isArray(stored.allowedOrigins)) return stored.allowedOrigins.filter(isOrigin);
  let preset = [];
  try {
    preset = await (await fetch(api.runtime.getURL('preset-origins.json'))).json();
  } catch (e) {
    preset = [];
  }
  preset = Array.isArray(preset) ? preset.filter(isOrigin) : [];
  await api.storage.local.set({ allowedOrigins: preset });
  return preset;
}

// Content scripts go only into pages of allowed origins: other pages get
// nothing at all, not even an object that refuses. Firefox accepts a port
// in a match pattern but then matches nothing, so there the pattern names
// the host alone: another port of an allowed host gets the object there,
// but its calls are refused, since the origin is checked exactly when the
// page connects.
const portsInPatterns = !('getBrowserInfo' in api.runtime);

function patternOf(origin) {
  const url = new URL(origin);
  return portsInPatterns ? origin + '/*' : url.protocol + '//' + url.hostname + '/*';
}

function wantedScripts(matches) {
  return [
    { id: SCRIPT_IDS[0], matches, js: ['page-api.js'], runAt: 'document_start', world: 'MAIN', allFrames: true },
    { id: SCRIPT_IDS[1], matches, js: ['relay.js'], runAt: 'document_start', allFrames: true },
  ];
}

// Registration runs several times as the extension starts (first install,
// browser start, the seeded allow-list being stored). Taking the scripts
// away and putting them back would leave a moment in which a page of an
// allowed origin loads without its object, so scripts already in place are
// left alone when they are what we want, and otherwise updated in place.
async function registerScripts() {
  const origins = await allowedOrigins();
  const registered = (await api.scripting.getRegisteredContentScripts()).filter((s) => SCRIPT_IDS.includes(s.id));
  if (!origins.length) {
    if (registered.length) await api.scripting.unregisterContentScripts({ ids: registered.map((s) => s.id) });
    return;
  }
  const wanted = wantedScripts([...new Set(origins.map(patternOf))]);
  const asWanted = (script) => {
    const want = wanted.find((w) => w.id === script.id);
    return Object.keys(want).every((key) => JSON.stringify(script[key] ?? false) === JSON.stringify(want[key] ?? false));
  };
  if (registered.length === wanted.length) {
    if (!registered.every(asWanted)) await api.scripting.updateContentScripts(wanted);
    return;
  }
  if (registered.length) await api.scripting.unregisterContentScripts({ ids: registered.map((s) => s.id) });
  await api.scripting.registerContentScripts(wanted);
}

let registering = Promise.resolve();
function scheduleRegistration() {
  registering = registering.then(registerScripts).catch((e) => console.error('Corvane Web:', e));
  return registering;
}

api.runtime.onInstalled.addListener(scheduleRegistration);
api.runtime.onStartup.addListener(scheduleRegistration);
api.storage.onChanged.addListener((changes, area) => {
  if (area === 'local' && 'allowedOrigins' in changes) scheduleRegistration();
});
scheduleRegistration();

function senderOrigin(sender) {
  if (sender.origin && sender.origin !== 'null') return sender.origin;
  try {
    return new URL(sender.url).origin;
  } catch (e) {
    return '';
  }
}

api.runtime.onConnect.addListener((page) => {
  if (page.name !== PORT_NAME || !page.sender) return;
  const origin = senderOrigin(page.sender);
  const allowed = allowedOrigins().then((origins) => origins.includes(origin));
  let native = null;

  function connectHost() {
    const port = api.runtime.connectNative(HOST_NAME);
    port.onMessage.addListener((message) => page.postMessage(message));
    port.onDisconnect.addListener(() => {
      const error = api.runtime.lastError || port.error;
      if (native === port) native = null;
      // The page hears of it; its next call starts a fresh host.
      page.postMessage({ dropped: (error && error.message) || 'The Corvane Web host has ended' });
    });
    // Before anything of the page's: the session is bound to this origin.
    port.postMessage({ id: -1, method: '@bind', args: [origin] });
    return port;
  }

  // What a page may pass on: strings, numbers, booleans, null and callback
  // tokens. The page can post to the relay directly, so nothing else (deep
  // nesting included) reaches the host.
  function argument(value) {
    if (value === null || ['string', 'number', 'boolean'].includes(typeof value)) return value;
    const keys = value && typeof value === 'object' ? Object.keys(value) : [];
    if (keys.length === 1 && keys[0] === 'callback' && Number.isSafeInteger(value.callback)) {
      return { callback: value.callback };
    }
    return null;
  }

  page.onMessage.addListener(async (message) => {
    const valid =
      message && Number.isInteger(message.id) && message.id >= 0 && typeof message.method === 'string' &&
      !message.method.startsWith('@');
    if (!valid) return;
    if (!(await allowed)) {
      page.postMessage({ id: message.id, rejected: 'Corvane Web is not allowed on ' + origin });
      return;
    }
    if (!native) native = connectHost();
    const args = Array.isArray(message.args) ? message.args.map(argument) : [];
    native.postMessage({ id: message.id, method: message.method, args });
  });
  page.onDisconnect.addListener(() => {
    if (native) native.disconnect();
    native = null;
  });
});
