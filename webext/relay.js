// In the page's frame, isolated from its scripts: carries the page object's
// calls (page-api.js) to the background and the answers back, and joins the
// chunks of answers that were too large for one native message.
'use strict';

(() => {
  const api = globalThis.browser ?? globalThis.chrome;
  const TAG = 'corvane-web';
  let port = null;
  let chunks = [];

  function toPage(message) {
    window.postMessage({ [TAG]: 'answer', message }, location.origin);
  }

  function connect() {
    port = api.runtime.connect({ name: TAG });
    port.onMessage.addListener((message) => {
      if (message && typeof message.chunk === 'string') {
        chunks.push(message.chunk);
        if (!message.last) return;
        const text = chunks.join('');
        chunks = [];
        try {
          message = JSON.parse(text);
        } catch (e) {
          return;
        }
      } else if (message && 'dropped' in message) {
        chunks = [];
      }
      toPage(message);
    });
    port.onDisconnect.addListener(() => {
      port = null;
      chunks = [];
      toPage({ dropped: 'The Corvane Web extension closed the connection' });
    });
  }

  window.addEventListener('message', (event) => {
    if (event.source !== window || !event.data || event.data[TAG] !== 'call') return;
    if (!port) connect();
    port.postMessage(event.data.message);
  });
})();
