'use strict';

const api = globalThis.browser ?? globalThis.chrome;

async function origins() {
  const stored = await api.storage.local.get('allowedOrigins');
  return Array.isArray(stored.allowedOrigins) ? stored.allowedOrigins : [];
}

async function show() {
  const list = document.getElementById('origins');
  list.textContent = '';
  for (const origin of await origins()) {
    const item = document.createElement('li');
    item.textContent = origin + ' ';
    const remove = document.createElement('button');
    remove.textContent = 'Remove';
    remove.addEventListener('click', async () => {
      await api.storage.local.set({ allowedOrigins: (await origins()).filter((o) => o !== origin) });
      show();
    });
    item.appendChild(remove);
    list.appendChild(item);
  }
}

document.getElementById('add').addEventListener('submit', async (event) => {
  event.preventDefault();
  const input = document.getElementById('origin');
  const error = document.getElementById('error');
  error.textContent = '';
  let origin;
  try {
    const url = new URL(input.value.trim());
    if (url.protocol !== 'http:' && url.protocol !== 'https:') throw new Error();
    origin = url.origin;
  } catch (e) {
    error.textContent = 'Enter an http or https origin, such as https://transfers.example.com';
    return;
  }
  const current = await origins();
  if (!current.includes(origin)) await api.storage.local.set({ allowedOrigins: [...current, origin] });
  input.value = '';
  show();
});

show();
