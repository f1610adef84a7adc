// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: 0BSD

// Sells goods on a fiscal register of the network: each sale once, whatever happens in between. A sale
// gets its key when it is made, and is stored with it before it is sent. What is stored without a result
// is sent again under its key: when there was no answer, and when the page is opened the next time.
'use strict';

const atOnce = 20; // seconds that one request waits for its receipt
const patience = 120; // seconds until the till gives up

// --- write and store -----------------------------------------------------------------------------

const load = (name, otherwise) => JSON.parse(localStorage.getItem(name)) ?? otherwise;
const store = (name, value) => localStorage.setItem(name, JSON.stringify(value));

// A line feed would begin another command. A backslash at the end would take the closing quote for a
// part of the text.
const quoted = (text) => {
  const clean = text.replace(/[\0-\x1f\x7f]/g, ' ').replaceAll('"', '\\"');
  return `"${clean}${clean.endsWith('\\') ? ' ' : ''}"`;
};

const commandFile = (name, price) => `SALE: DEPTNR=1; NAME=${quoted(name)}; AMOUNT=${price}\nTENDER\n`;

const newKey = () => {
  // Not crypto.randomUUID(), which a page without TLS does not have.
  const bytes = crypto.getRandomValues(new Uint8Array(16));
  return 'till-' + [...bytes].map((byte) => byte.toString(16).padStart(2, '0')).join('');
};

// Another window of the browser may have stored something meanwhile.
const keep = (sale) => {
  const sales = load('sales', []).filter((other) => other.key !== sale.key);
  store('sales', [...sales, sale].slice(-100));
  show();
};

// --- send, and send again ------------------------------------------------------------------------

const post = async ({ service, register, token }, sale) => {
  const response = await fetch(`${service}/v1/registers/${encodeURIComponent(register)}/jobs`, {
    method: 'POST',
    headers: {
      Authorization: `Bearer ${token}`,
      'Content-Type': 'text/plain; charset=utf-8',
      'Idempotency-Key': sale.key,
      Prefer: `wait=${atOnce}`,
    },
    body: sale.content,
    credentials: 'omit',
    redirect: 'error',
    signal: AbortSignal.timeout((atOnce + 10) * 1000),
  });
  const retryAfter = parseInt(response.headers.get('Retry-After'), 10);
  const answer = await response.json().catch(() => ({})); // of something between
  return { status: response.status, retryAfter, answer: answer ?? {} };
};

const kindOf = (answer) => (answer.type ?? '').split(':').pop();

// False: the same request again, later, may have another answer.
const decides = ({ status, answer }) => {
  if (status === 200) return 'verdict' in answer;
  if (status >= 500) return ['not-printed', 'part', 'in-doubt', 'forgotten'].includes(kindOf(answer));
  return status >= 400 && ![408, 409, 429].includes(status);
};

const sleep = (seconds) => new Promise((done) => setTimeout(done, seconds * 1000));

// What decides; nothing: there was no such answer in time.
const ask = async (settings, sale) => {
  const end = Date.now() + patience * 1000;
  for (let pause = 1; Date.now() < end; pause = Math.min(2 * pause, 10)) {
    const told = await post(settings, sale).catch(() => undefined); // no answer, or none for this page
    if (told && decides(told)) return told;
    await sleep(Math.min(told?.retryAfter || pause, (end - Date.now()) / 1000));
  }
  return undefined;
};

// --- decide --------------------------------------------------------------------------------------

// The words for the cashier, and whether the sale is to be sent again.
const decide = (settings, told) => {
  const { status, answer } = told ?? {};
  const what = answer?.detail ?? `status ${status}`;
  const hint = answer?.explanation?.what_to_do ?? '';
  if (!told)
    return { again: true, text: 'Not known: no answer. Is the service there, and has it this page in Origins=?' };
  if (status === 200) return decidePrinted(answer);
  switch (kindOf(answer)) {
    case 'part':
    case 'in-doubt':
    case 'forgotten':
      return {
        again: true,
        text: `In doubt: ${what}. ${hint} Look at the paper, record what it says at ${settings.service}, then send again.`,
      };
    case 'not-printed':
      return { again: true, text: `Not printed: ${what}. ${hint} Then send again.` };
    case 'withdrawn':
      return { again: false, text: `Not printed: ${what}.` };
  }
  if ([400, 413, 415, 422].includes(status))
    return { again: false, text: `Not printed, a mistake of the till: ${what}. ${hint}` };
  return { again: true, text: `Refused: ${what}. Look at the settings, then send again.` };
};

const decidePrinted = (job) => {
  const receipt = job.outcome?.receipt?.after ?? '?';
  if (job.exit_code === 0 || job.resolved) return { again: false, text: `Printed, receipt ${receipt}.` };
  return {
    again: false,
    text: `Printed, receipt ${receipt}, but: ${job.outcome?.driver?.message}. Look at the register before the next sale.`,
  };
};

const send = async (sale) => {
  const settings = load('settings', null);
  if (!settings) {
    keep({ ...sale, again: true, text: 'The settings are missing.' });
    return;
  }
  keep({ ...sale, again: false, text: 'Sending ...', isOpen: true });
  const told = await ask(settings, sale);
  keep({ ...sale, ...decide(settings, told), isOpen: !told });
};

// --- the page ------------------------------------------------------------------------------------

const show = () => {
  const rows = load('sales', []).reverse().map((sale) => {
    const row = document.createElement('li');
    row.textContent = `${sale.name}, ${sale.price}: ${sale.text} `;
    row.dataset.key = sale.key;
    if (sale.again) {
      const button = document.createElement('button');
      button.textContent = 'Send again';
      button.addEventListener('click', () => send(sale));
      row.append(button);
    }
    return row;
  });
  document.getElementById('sales').replaceChildren(...rows);
};

document.getElementById('sale').addEventListener('submit', (event) => {
  event.preventDefault();
  const { name, price } = Object.fromEntries(new FormData(event.target));
  event.target.reset();
  send({ key: newKey(), name, price, content: commandFile(name, price) });
});

document.getElementById('settings').addEventListener('submit', (event) => {
  event.preventDefault();
  const settings = Object.fromEntries(new FormData(event.target));
  store('settings', { ...settings, service: settings.service.replace(/\/+$/, '') });
  event.target.closest('details').open = false;
});

for (const [name, value] of Object.entries(load('settings', {})))
  document.getElementById('settings').elements[name].value = value;
for (const sale of load('sales', [])) if (sale.isOpen) send(sale);
show();
