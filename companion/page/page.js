// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Shows what is new. Everything else works without this.
'use strict';

(() => {
  const settle = 150; // ms: events that come together are shown together
  const news = document.getElementById('news');
  const live = document.getElementById('live');
  let pending = 0;
  let waits = false; // there is something new, and a form is being filled in

  const content = () => document.getElementById('main');

  const say = (text) => {
    if (news.textContent !== text) news.textContent = text;
  };

  const tell = (text, isLive) => {
    live.textContent = text;
    live.className = isLive ? 'live on' : 'live off';
    if (!isLive) say(text);
  };

  // Times as the clock on the wall has them.
  const localise = () => {
    for (const time of document.querySelectorAll('time[datetime]')) {
      const moment = new Date(time.dateTime);
      if (Number.isNaN(moment.getTime())) continue;
      time.title = time.dateTime;
      time.textContent = moment.toLocaleString();
    }
  };

  // What somebody has typed or chosen is not taken away.
  const isBeingFilledIn = () =>
    [...content().querySelectorAll('form input:not([type=hidden])')].some((input) =>
      input.type === 'radio' ? input.checked !== input.defaultChecked : input.value !== input.defaultValue);

  const keyOf = (element) =>
    element.id || element.getAttribute('aria-label') || element.getAttribute('href') || '';

  const focusAgain = (key) => {
    if (!key) return;
    const same = [...content().querySelectorAll('a, button, input, summary')].find((one) => keyOf(one) === key);
    (same || content()).focus({ preventScroll: true });
  };

  const swap = (fresh) => {
    const old = content();
    const open = [...old.querySelectorAll('details[open]')].map((one) => one.id);
    const focused = old.contains(document.activeElement) ? keyOf(document.activeElement) : '';
    const said = old.dataset.summary;
    old.replaceWith(document.adoptNode(fresh));
    for (const id of open) document.getElementById(id)?.setAttribute('open', '');
    localise();
    focusAgain(focused);
    if (fresh.dataset.summary !== said) say(fresh.dataset.summary || '');
  };

  const refresh = async () => {
    pending = 0;
    if (isBeingFilledIn()) {
      waits = true;
      tell('There is something new. It is shown when the form is sent or empty.', true);
      say(live.textContent);
      return;
    }
    waits = false;
    try {
      const response = await fetch(location.pathname + location.search, {
        headers: { Accept: 'text/html' },
        cache: 'no-store',
      });
      if (response.redirected) {
        location.assign(response.url);
        return;
      }
      if (!response.ok) throw new Error(String(response.status));
      const page = new DOMParser().parseFromString(await response.text(), 'text/html');
      const fresh = page.getElementById('main');
      if (isBeingFilledIn()) {
        waits = true;
        return;
      }
      swap(fresh);
      document.title = page.title;
      tell('Live', true);
    } catch {
      tell('Not live: reload the page', false);
    }
  };

  const refreshSoon = () => {
    if (!pending) pending = setTimeout(refresh, settle);
  };

  const follow = () => {
    const after = content().dataset.after;
    if (after === undefined) return;
    const events = new EventSource('/v1/events?after=' + encodeURIComponent(after));
    events.addEventListener('open', () => tell('Live', true));
    events.addEventListener('job', refreshSoon);
    events.addEventListener('error', () => {
      if (events.readyState === EventSource.CLOSED) tell('Not live: reload the page', false);
      else tell('Not live: trying again', false);
    });
  };

  document.addEventListener('input', () => {
    if (waits && !isBeingFilledIn()) refreshSoon();
  });

  localise();
  follow();
})();
