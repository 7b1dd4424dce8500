// The page's `corvaneWeb` object: the plug-in's page API for browsers
// without plug-ins. Runs in the page's own world before its scripts.
// Every method returns a Promise of the plug-in's answer (the same text);
// a call the plug-in would have refused with a script error rejects with
// a TypeError. Functions passed as callbacks are kept here and called when
// the host says so. Drops carry no file paths in these browsers, so
// handleDrop answers an error document.
'use strict';

(() => {
  if ('corvaneWeb' in window) return;
  const TAG = 'corvane-web';
  const METHODS = [
    'addToDownloadList', 'addToUploadList', 'clearDownloadList', 'clearUploadList', 'kestrixHttpRequest',
    'kestrixHttpRequestAsync', 'displayAboutWindow', 'displayPreferencesWindow', 'displayTransferManager',
    'handleDrop', 'initSession', 'queryBrowserEngine', 'queryBuildVersion', 'queryPluginVersion', 'queryVersion',
    'queryKestrixVersion', 'runOpenFileDialog', 'runOpenFileDialogAsync', 'runOpenFolderDialog',
    'runOpenFolderDialogAsync', 'runSaveFileDialog', 'runSaveFileDialogAsync', 'startDownload',
    'startDownloadToPath', 'startUploadToURL', 'startListDownloadToPath', 'readAsArrayBuffer',
    'readChunkAsArrayBuffer', 'startListUploadToURL',
  ];
  // The page may replace these later; we keep the originals.
  const post = window.postMessage.bind(window);
  const origin = location.origin;
  const pending = new Map();
  const callbacks = new Map();
  let nextId = 1;
  let nextCallback = 1;
  let name = '';
  let dropObserver = null;
  let eventHandler = null;
  // Transfer events go to the handler set last, even after it was cleared,
  // as with the plug-in.
  let transferTarget = null;

  function encode(value, callId) {
    if (typeof value === 'function' || (value !== null && typeof value === 'object')) {
      const id = nextCallback++;
      callbacks.set(id, { fn: value, callId });
      return { callback: id };
    }
    if (value === undefined || (typeof value === 'number' && !Number.isFinite(value))) return null;
    return value;
  }

  function call(method, args) {
    return new Promise((resolve, reject) => {
      const id = nextId++;
      pending.set(id, { resolve, reject, after: [] });
      post({ [TAG]: 'call', message: { id, method, args: Array.from(args, (arg) => encode(arg, id)) } }, origin);
    });
  }

  function callPage(fn, ...args) {
    if (typeof fn !== 'function') return;
    try {
      fn(...args);
    } catch (e) {
      setTimeout(() => {
        throw e;
      });
    }
  }

  window.addEventListener('message', (event) => {
    if (event.source !== window || !event.data || event.data[TAG] !== 'answer') return;
    const message = event.data.message;
    if (!message || typeof message !== 'object') return;
    if ('id' in message) {
      const waiting = pending.get(message.id);
      if (!waiting) return;
      pending.delete(message.id);
      if ('rejected' in message) waiting.reject(new TypeError(message.rejected));
      else waiting.resolve(message.result);
      // After the code that awaits the call has run, as with the plug-in,
      // whose callbacks never come before its call has returned.
      for (const deferred of waiting.after) setTimeout(deferred);
    } else if ('callback' in message) {
      const entry = callbacks.get(message.callback);
      callbacks.delete(message.callback);
      if (!entry) return;
      const deliver = () => callPage(entry.fn, message.text);
      const waiting = pending.get(entry.callId);
      if (waiting) waiting.after.push(deliver);
      else deliver();
    } else if (message.event === 'transfer') {
      callPage(transferTarget, 'transfer', message.text);
    } else if ('dropped' in message) {
      // The host is gone, and with it the session: what was waiting fails;
      // the next call starts a fresh host.
      const error = new Error(message.dropped);
      for (const waiting of pending.values()) waiting.reject(error);
      pending.clear();
      callbacks.clear();
      window.dispatchEvent(new CustomEvent('corvanewebdisconnect', { detail: message.dropped }));
    }
  });

  const corvaneWeb = {};
  for (const method of METHODS) {
    corvaneWeb[method] = function () {
      return call(method, arguments);
    };
  }
  Object.defineProperties(corvaneWeb, {
    name: {
      get: () => name,
      set: (value) => {
        if (typeof value === 'string') name = value;
      },
    },
    dropObserver: {
      get: () => dropObserver,
      set: (value) => {
        dropObserver = value !== null && (typeof value === 'object' || typeof value === 'function') ? value : null;
      },
    },
    eventHandler: {
      get: () => eventHandler,
      set: (value) => {
        eventHandler = value !== null && (typeof value === 'object' || typeof value === 'function') ? value : null;
        if (eventHandler) transferTarget = eventHandler;
      },
    },
  });
  Object.defineProperty(window, 'corvaneWeb', { value: Object.freeze(corvaneWeb), enumerable: true });
})();
