// The agent console: polls the local service's console API and drives the selected visit.
// Plain script, no build step; the element ids and data-testid values are documented in
// docs/protocol.md ("Agent console") because browser tests rely on them.
'use strict';

(function () {
  const API = '/console/api';
  const SCALE = 3;              // screenshots are a third of the device's pixel size
  const VISITS_EVERY_MS = 1000;
  const EVENTS_EVERY_MS = 200;  // a new screenshot shows within half a second
  const CHAT_EVERY_MS = 1000;
  const POLLER_STALE_MS = 30000; // devices poll every few seconds; a silent one has gone
  const MAX_ENTRIES = 300;

  const $ = (id) => document.getElementById(id);
  const ui = {
    status: $('connection-status'),
    visitRows: $('visit-list').tBodies[0],
    visitTable: $('visit-list'),
    visitEmpty: $('visit-list-empty'),
    pollerRows: $('poller-list').tBodies[0],
    pollerTable: $('poller-list'),
    pollerEmpty: $('poller-list-empty'),
    title: $('selected-visit'),
    stage: $('stage'),
    screen: $('screen'),
    canvas: $('drawing-canvas'),
    taps: $('tap-layer'),
    timeline: $('timeline'),
    actionStatus: $('action-status'),
    actions: document.querySelector('.actions'),
    draw: $('action-draw'),
    sendDrawing: $('action-send-drawing'),
    clearDrawing: $('action-clear-drawing'),
    user: $('visit-user'),
    userName: $('user-name'),
    userEmail: $('user-email'),
    userTags: $('user-tags'),
    chat: $('chat-messages'),
    chatEmpty: $('chat-empty'),
    chatForm: $('chat-form'),
    chatInput: $('chat-input'),
    chatButtons: [$('chat-send'), $('chat-send-pdf'), $('chat-send-image')],
    commands: {
      'action-faster': 'faster',
      'action-opt-in': 'opt-in',
      'action-cobrowse': 'co-browse',
      'action-start': 'start',
      'action-stop': 'stop',
    },
  };

  const state = {
    visits: [],
    selectedId: null,
    selected: null,          // the selected visit's newest summary
    since: 0,                // report cursor of the selected visit
    primed: false,           // the first events answer of this visit arrived
    shownIndex: -1,          // report index of the screenshot on display
    loadingIndex: -1,
    imageUrl: null,
    natural: null,           // {width, height} of the screenshot on display
    drawing: false,
    drawn: false,
    generation: 0,           // bumps on every selection, so late answers are dropped
    chatShown: '',           // the chat answer on display, to redraw only on change
  };

  // ---- service access -------------------------------------------------------------------

  async function call(method, path, body) {
    const options = { method, headers: {} };
    if (body !== undefined) {
      options.headers['Content-Type'] = 'application/json';
      options.body = JSON.stringify(body);
    }
    const response = await fetch(API + path, options);
    let data = null;
    try { data = await response.json(); } catch (e) { data = null; }
    return { ok: response.ok, status: response.status, data };
  }

  function setConnection(online) {
    ui.status.dataset.state = online ? 'online' : 'offline';
    ui.status.textContent = online ? 'Connected' : 'Service unreachable';
  }

  // ---- visit and poller lists -----------------------------------------------------------

  // HH:MM:SS, local time: compact enough for narrow columns.
  function time(ms) {
    if (ms == null) return '—';
    const at = new Date(ms);
    return [at.getHours(), at.getMinutes(), at.getSeconds()]
      .map((part) => String(part).padStart(2, '0')).join(':');
  }

  function short(id) {
    return id ? id.slice(0, 8) : '—';
  }

  function cell(row, text, title) {
    const td = row.insertCell();
    td.textContent = text;
    if (title) td.title = title;
    return td;
  }

  function renderVisits(visits) {
    ui.visitRows.replaceChildren();
    for (const visit of visits) {
      const row = ui.visitRows.insertRow();
      row.dataset.testid = 'visit-row';
      row.dataset.visitId = visit.id;
      row.setAttribute('aria-selected', String(visit.id === state.selectedId));
      if (visit.id === state.selectedId) row.classList.add('selected');
      cell(row, visit.shareId || '—');
      cell(row, visit.tenantId || '—', visit.tenantId);
      cell(row, short(visit.visitorId), visit.visitorId);
      cell(row, visit.screen || '—', visit.screen);
      cell(row, visit.transport);
      cell(row, time(visit.lastReportAt));
      row.addEventListener('click', () => select(visit.id));
    }
    ui.visitTable.hidden = visits.length === 0;
    ui.visitEmpty.hidden = visits.length !== 0;
  }

  function renderPollers(pollers) {
    ui.pollerRows.replaceChildren();
    for (const poller of pollers) {
      const row = ui.pollerRows.insertRow();
      row.dataset.testid = 'poller-row';
      row.dataset.visitorId = poller.visitorId;
      cell(row, short(poller.visitorId), poller.visitorId);
      cell(row, poller.tenantId || '—', poller.tenantId);
      cell(row, poller.channels.join(' ') || '—');
      cell(row, time(poller.lastPollAt));
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = 'Co-browse';
      button.title = 'Start co-browsing on this device';
      button.dataset.testid = 'poller-cobrowse';
      button.addEventListener('click', () =>
        act('POST', '/pollers/' + encodeURIComponent(poller.visitorId) + '/co-browse', undefined,
            'Co-browsing start queued for visitor ' + short(poller.visitorId)));
      row.insertCell().append(button);
    }
    ui.pollerTable.hidden = pollers.length === 0;
    ui.pollerEmpty.hidden = pollers.length !== 0;
  }

  async function refreshVisits() {
    try {
      const answer = await call('GET', '/visits');
      if (!answer.ok || !answer.data) throw new Error('HTTP ' + answer.status);
      setConnection(true);
      const live = answer.data.visits.filter((visit) => visit.state === 'open');
      state.visits = live;
      const next = follow(live, answer.data.visits);
      if (next) select(next);
      renderVisits(live);
      // A device that changed its visitor id (its user was identified) leaves its old one behind.
      renderPollers(answer.data.pollers.filter((poller) => !poller.hasLiveVisit &&
        Date.now() - poller.lastPollAt < POLLER_STALE_MS));
    } catch (e) {
      setConnection(false);
    }
    setTimeout(refreshVisits, VISITS_EVERY_MS);
  }

  // The visit to show next, if not the selected one. A device restarts its session as a new
  // visit (e.g. once its user is identified): the console follows the newest live visit of the
  // same visitor or session, or the only live visit once the selected one is gone.
  function follow(live, all) {
    const current = all.find((visit) => visit.id === state.selectedId);
    const isLive = live.some((visit) => visit.id === state.selectedId);
    if (current) {
      const successors = live.filter((visit) => visit.id !== current.id &&
        (visit.openedAt || 0) > (current.openedAt || 0) &&
        ((current.visitorId && visit.visitorId === current.visitorId) ||
         (current.sessionId && visit.sessionId === current.sessionId)));
      if (successors.length) {
        successors.sort((a, b) => (b.openedAt || 0) - (a.openedAt || 0));
        return successors[0].id;
      }
    }
    if (!isLive && live.length === 1) return live[0].id;
    return null;
  }

  // ---- the selected visit ---------------------------------------------------------------

  function select(visitId) {
    if (visitId === state.selectedId) return;
    state.generation += 1;
    Object.assign(state, {
      selectedId: visitId, selected: null, since: 0, primed: false,
      shownIndex: -1, loadingIndex: -1, natural: null,
    });
    if (state.imageUrl) URL.revokeObjectURL(state.imageUrl);
    state.imageUrl = null;
    ui.screen.removeAttribute('src');
    delete ui.screen.dataset.screenshotIndex;
    ui.screen.dataset.visitId = visitId;
    ui.timeline.replaceChildren();
    ui.taps.replaceChildren();
    state.chatShown = '';
    renderChat([]);
    setDrawing(false);
    clearCanvas();
    renderVisits(state.visits);
    renderSelection();
  }

  function renderSelection() {
    const visit = state.selected;
    if (!state.selectedId) {
      ui.title.textContent = 'No visit selected';
    } else if (visit) {
      const share = visit.shareId ? 'Share id ' + visit.shareId : 'Visit ' + short(visit.id);
      const ended = visit.state === 'open' ? '' : ' (' + visit.state + ')';
      ui.title.textContent = share + ' · ' + (visit.screen || 'unknown screen') + ended;
    }
    const usable = !!visit && visit.state === 'open';
    for (const id of Object.keys(ui.commands)) $(id).disabled = !usable;
    ui.draw.disabled = !usable || !state.natural;
    ui.sendDrawing.disabled = !usable || !state.drawn;
    ui.clearDrawing.disabled = !state.drawn;
    for (const button of ui.chatButtons) button.disabled = !visit || !visit.visitorId;
    renderUser(visit && visit.user);
  }

  // ---- the visit's user and chat --------------------------------------------------------

  function renderUser(user) {
    ui.user.dataset.identified = String(!!user);
    ui.user.dataset.source = user ? user.source : '';
    ui.userName.textContent = user ? [user.firstname, user.lastname].filter(Boolean).join(' ') : '';
    ui.userEmail.textContent = user ? user.email : '';
    const tags = (user && user.tags) || [];
    if (ui.userTags.textContent !== tags.join('')) {
      ui.userTags.replaceChildren(...tags.map((tag) => {
        const chip = document.createElement('span');
        chip.className = 'tag';
        chip.textContent = tag;
        return chip;
      }));
    }
  }

  function renderChat(messages) {
    const atBottom = ui.chat.scrollTop + ui.chat.clientHeight >= ui.chat.scrollHeight - 4;
    ui.chat.replaceChildren(...messages.map((message) => {
      const item = document.createElement('li');
      item.dataset.testid = 'chat-message';
      item.dataset.id = String(message.id);
      item.dataset.from = message.from;
      item.dataset.delivered = String(message.delivered);
      const text = document.createElement('span');
      if (message.document) {
        const link = document.createElement('a');
        link.href = message.document.url;
        link.textContent = message.document.name;
        text.append('Document: ', link);
      } else {
        text.textContent = (message.from === 'visitor' ? 'Visitor: ' : '') + message.text;
      }
      item.append(text);
      if (message.from === 'agent' && message.delivered) {
        const seen = document.createElement('span');
        seen.className = 'seen';
        seen.dataset.testid = 'chat-seen';
        seen.textContent = '✓ seen';
        seen.title = 'The chat page fetched it';
        item.append(seen);
      }
      return item;
    }));
    ui.chatEmpty.hidden = messages.length !== 0;
    if (atBottom) ui.chat.scrollTop = ui.chat.scrollHeight;
  }

  function applyChat(data) {
    const shown = JSON.stringify(data.messages);
    if (shown === state.chatShown) return;
    state.chatShown = shown;
    renderChat(data.messages);
  }

  async function pollChat() {
    const visitId = state.selectedId;
    const generation = state.generation;
    if (visitId && state.selected && state.selected.visitorId) {
      try {
        const answer = await call('GET', '/visits/' + encodeURIComponent(visitId) + '/chat');
        if (generation === state.generation && answer.ok && answer.data) applyChat(answer.data);
      } catch (e) {
        setConnection(false);
      }
    }
    setTimeout(pollChat, CHAT_EVERY_MS);
  }

  async function chatPost(path, body, done) {
    if (!state.selectedId) return;
    const generation = state.generation;
    const answer = await call('POST', '/visits/' + encodeURIComponent(state.selectedId) + path, body)
      .catch(() => ({ ok: false, status: 0, data: null }));
    if (answer.ok) {
      if (generation === state.generation) applyChat(answer.data);
      report(done, false);
    } else {
      report((answer.data && answer.data.error) || 'The service cannot be reached', true);
    }
    return answer.ok;
  }

  ui.chatForm.addEventListener('submit', async (e) => {
    e.preventDefault();
    const text = ui.chatInput.value.trim();
    if (!text) return;
    if (await chatPost('/chat', { text }, 'Chat message')) ui.chatInput.value = '';
  });
  $('chat-send-pdf').addEventListener('click', () =>
    chatPost('/chat/document', { kind: 'pdf' }, 'PDF sent into the chat'));
  $('chat-send-image').addEventListener('click', () =>
    chatPost('/chat/document', { kind: 'png' }, 'Image sent into the chat'));

  async function pollEvents() {
    const visitId = state.selectedId;
    const generation = state.generation;
    if (visitId) {
      try {
        const answer = await call('GET', '/visits/' + encodeURIComponent(visitId) +
                                         '/events?since=' + state.since);
        if (generation === state.generation && answer.ok && answer.data) {
          applyEvents(answer.data);
        }
      } catch (e) {
        setConnection(false);
      }
    }
    setTimeout(pollEvents, EVENTS_EVERY_MS);
  }

  function applyEvents(data) {
    state.selected = data.visit;
    const live = state.primed;  // the first answer is history: no markers for it
    for (const event of data.events) addEvent(event, live);
    state.since = data.next;
    state.primed = true;
    const shot = data.visit.screenshot;
    if (shot && shot.index > state.shownIndex && shot.index !== state.loadingIndex) {
      loadScreenshot(data.visit.id, shot.index);
    }
    renderSelection();
  }

  async function loadScreenshot(visitId, index) {
    const generation = state.generation;
    state.loadingIndex = index;
    try {
      const response = await fetch(API + '/visits/' + encodeURIComponent(visitId) +
                                   '/screenshots/' + index);
      if (!response.ok) return;
      const blob = await response.blob();
      if (generation !== state.generation || index <= state.shownIndex) return;
      const url = URL.createObjectURL(blob);
      const image = new Image();
      image.onload = () => {
        if (generation !== state.generation || index <= state.shownIndex) {
          URL.revokeObjectURL(url);
          return;
        }
        const previous = state.imageUrl;
        state.imageUrl = url;
        state.shownIndex = index;
        ui.screen.src = url;
        ui.screen.dataset.screenshotIndex = String(index);
        if (previous) URL.revokeObjectURL(previous);
        layout(image.naturalWidth, image.naturalHeight);
      };
      image.onerror = () => URL.revokeObjectURL(url);
      image.src = url;
    } catch (e) {
      setConnection(false);
    } finally {
      if (state.loadingIndex === index) state.loadingIndex = -1;
    }
  }

  // Shows the screenshot large enough to work on: up to device size, within the panel.
  function layout(width, height) {
    const changed = !state.natural || state.natural.width !== width ||
                    state.natural.height !== height;
    state.natural = { width, height };
    // The panel's height less its title, buttons, status line, paddings and margins.
    const panel = ui.stage.parentElement;
    const others = ui.title.offsetHeight + ui.actions.offsetHeight + ui.actionStatus.offsetHeight;
    const room = {
      width: panel.clientWidth - 24,
      height: Math.max(160, panel.clientHeight - others - 64),
    };
    const scale = Math.min(SCALE, room.width / width, room.height / height);
    const shown = { width: Math.round(width * scale), height: Math.round(height * scale) };
    for (const element of [ui.screen, ui.canvas]) {
      element.style.width = shown.width + 'px';
      element.style.height = shown.height + 'px';
    }
    if (changed) {
      // The drawing is made in device pixels, as the device lays it over its screen.
      ui.canvas.width = width * SCALE;
      ui.canvas.height = height * SCALE;
      clearCanvas();
    }
    renderSelection();
  }

  window.addEventListener('resize', () => {
    if (state.natural) layout(state.natural.width, state.natural.height);
  });

  // ---- time line ------------------------------------------------------------------------

  function describe(event) {
    switch (event.kind) {
    case 'page': return ['Page', event.screen || '(no name)'];
    case 'tag': return ['Tag', event.tag];
    case 'tap': return ['Tap', '(' + Math.round(event.x) + ', ' + Math.round(event.y) + ')'];
    case 'userTag': {
      const user = event.user;
      const name = [user.firstname, user.lastname].filter(Boolean).join(' ');
      const parts = [name, user.email, user.id && 'id ' + user.id,
                     user.label.length && 'labels ' + user.label.join(', ')];
      return ['User', parts.filter(Boolean).join(' · ') || '(empty)'];
    }
    default: return [event.kind, ''];
    }
  }

  function entry(kind, label, text, at, index) {
    const item = document.createElement('li');
    item.dataset.testid = 'timeline-entry';
    item.dataset.kind = kind;
    if (index !== undefined) item.dataset.index = String(index);
    const stamp = document.createElement('time');
    stamp.dateTime = new Date(at).toISOString();
    stamp.textContent = time(at);
    const kindLabel = document.createElement('span');
    kindLabel.className = 'kind';
    kindLabel.textContent = label;
    const body = document.createElement('span');
    body.className = 'text';
    body.textContent = text;
    item.append(stamp, kindLabel, body);
    ui.timeline.prepend(item);
    while (ui.timeline.children.length > MAX_ENTRIES) ui.timeline.lastElementChild.remove();
  }

  function addEvent(event, live) {
    const [label, text] = describe(event);
    entry(event.kind, label, text, event.at, event.index);
    if (event.kind === 'tap' && live) mark(event.x / SCALE, event.y / SCALE, false);
  }

  // A ring at screenshot pixel (x, y).
  function mark(x, y, byAgent) {
    if (!state.natural) return;
    const marker = document.createElement('div');
    marker.className = byAgent ? 'tap-marker agent' : 'tap-marker';
    marker.dataset.testid = 'tap-marker';
    marker.style.left = (100 * x / state.natural.width) + '%';
    marker.style.top = (100 * y / state.natural.height) + '%';
    ui.taps.append(marker);
    setTimeout(() => marker.remove(), 3000);
  }

  // ---- agent actions --------------------------------------------------------------------

  // ---- video calls ---------------------------------------------------------------------

  function callButton(label, testid, path, done, danger) {
    const button = document.createElement('button');
    button.type = 'button';
    button.textContent = label;
    button.dataset.testid = testid;
    if (danger) button.classList.add('danger');
    button.addEventListener('click', async () => {
      if (await act('POST', path, undefined, done)) refreshCallsNow();
    });
    return button;
  }

  function renderCalls(data) {
    const rows = document.querySelector('#call-queue tbody');
    rows.replaceChildren();
    for (const customer of data.customers) {
      const row = rows.insertRow();
      row.dataset.testid = 'call-row';
      row.dataset.customerId = customer.customerId;
      row.dataset.position = String(customer.position);
      const name = [customer.firstName, customer.lastName].filter(Boolean).join(' ');
      cell(row, customer.position === 0 ? 'calling' : String(customer.position));
      cell(row, customer.tenantId);
      cell(row, short(customer.customerId), customer.customerId);
      cell(row, name || '—');
      cell(row, customer.email || '—');
      const path = '/calls/' + encodeURIComponent(customer.tenantId) + '/' +
        encodeURIComponent(customer.customerId) + '/';
      const who = name || short(customer.customerId);
      const actions = row.insertCell();
      if (customer.position > 0) {
        actions.append(
          callButton('↑', 'call-up', path + 'up', who + ' moved up'),
          callButton('↓', 'call-down', path + 'down', who + ' moved down'),
          callButton('Start call', 'call-start', path + 'start', 'Call started with ' + who));
      }
      actions.append(callButton('Remove', 'call-remove', path + 'remove', who + ' removed', true));
    }
    document.getElementById('call-queue').hidden = data.customers.length === 0;
    document.getElementById('call-queue-empty').hidden = data.customers.length !== 0;

    const meetings = document.querySelector('#meeting-list tbody');
    meetings.replaceChildren();
    // Newest first: the call in progress is on top.
    for (const meeting of [...data.meetings].reverse()) {
      const row = meetings.insertRow();
      row.dataset.testid = 'meeting-row';
      row.dataset.room = meeting.room;
      row.dataset.ended = String(meeting.ended);
      cell(row, meeting.room);
      cell(row, meeting.displayName || '—', meeting.email);
      cell(row, meeting.subject || '—');
      cell(row, meeting.ended ? 'ended' : 'in call');
      const actions = row.insertCell();
      if (!meeting.ended) {
        actions.append(callButton('End call', 'meeting-end',
          '/meetings/' + encodeURIComponent(meeting.room) + '/end',
          'Call in ' + meeting.room + ' ended', true));
      }
    }
    document.getElementById('meeting-list').hidden = data.meetings.length === 0;
    document.getElementById('meeting-list-empty').hidden = data.meetings.length !== 0;
  }

  let callsShown = '';
  async function refreshCallsNow() {
    try {
      const answer = await call('GET', '/calls');
      if (!answer.ok || !answer.data) return;
      // Redrawn only on change, so a button is not replaced under the pointer.
      const shown = JSON.stringify(answer.data);
      if (shown !== callsShown) {
        callsShown = shown;
        renderCalls(answer.data);
      }
    } catch (e) { /* the visit list shows the connection state */ }
  }

  async function refreshCalls() {
    await refreshCallsNow();
    setTimeout(refreshCalls, VISITS_EVERY_MS);
  }

  function report(text, failed) {
    ui.actionStatus.textContent = text;
    ui.actionStatus.classList.toggle('error', !!failed);
    entry(failed ? 'error' : 'command', failed ? 'Refused' : 'Sent', text, Date.now());
  }

  async function act(method, path, body, done) {
    try {
      const answer = await call(method, path, body);
      if (answer.ok) report(done, false);
      else report((answer.data && answer.data.error) || 'HTTP ' + answer.status, true);
      return answer.ok;
    } catch (e) {
      setConnection(false);
      report('The service cannot be reached', true);
      return false;
    }
  }

  function visitPath(action) {
    return '/visits/' + encodeURIComponent(state.selectedId) + '/' + action;
  }

  ui.screen.addEventListener('click', (e) => {
    if (!state.selectedId || !state.natural || state.drawing) return;
    const box = ui.screen.getBoundingClientRect();
    // Screenshot pixels, then device pixels.
    const sx = (e.clientX - box.left) * state.natural.width / box.width;
    const sy = (e.clientY - box.top) * state.natural.height / box.height;
    const x = Math.min(state.natural.width * SCALE - 1, Math.max(0, Math.floor(sx * SCALE)));
    const y = Math.min(state.natural.height * SCALE - 1, Math.max(0, Math.floor(sy * SCALE)));
    mark(sx, sy, true);
    act('POST', visitPath('click'), { x, y }, 'Tap at (' + x + ', ' + y + ')');
  });

  for (const [id, action] of Object.entries(ui.commands)) {
    const label = $(id).textContent;
    $(id).addEventListener('click', () => {
      if (state.selectedId) act('POST', visitPath(action), undefined, label);
    });
  }

  // ---- drawing --------------------------------------------------------------------------

  const pen = ui.canvas.getContext('2d');
  let stroke = null;

  function clearCanvas() {
    pen.clearRect(0, 0, ui.canvas.width, ui.canvas.height);
    state.drawn = false;
    renderSelection();
  }

  function setDrawing(on) {
    state.drawing = on;
    ui.stage.classList.toggle('drawing', on);
    ui.draw.setAttribute('aria-pressed', String(on));
  }

  function canvasPoint(e) {
    const box = ui.canvas.getBoundingClientRect();
    return {
      x: (e.clientX - box.left) * ui.canvas.width / box.width,
      y: (e.clientY - box.top) * ui.canvas.height / box.height,
    };
  }

  ui.canvas.addEventListener('pointerdown', (e) => {
    if (!state.drawing) return;
    ui.canvas.setPointerCapture(e.pointerId);
    stroke = canvasPoint(e);
    pen.strokeStyle = '#ff2d55';
    pen.lineWidth = Math.max(4, ui.canvas.width / 150);
    pen.lineCap = 'round';
    pen.lineJoin = 'round';
  });
  ui.canvas.addEventListener('pointermove', (e) => {
    if (!stroke) return;
    const next = canvasPoint(e);
    pen.beginPath();
    pen.moveTo(stroke.x, stroke.y);
    pen.lineTo(next.x, next.y);
    pen.stroke();
    stroke = next;
    if (!state.drawn) {
      state.drawn = true;
      renderSelection();
    }
  });
  const endStroke = () => { stroke = null; };
  ui.canvas.addEventListener('pointerup', endStroke);
  ui.canvas.addEventListener('pointercancel', endStroke);

  ui.draw.addEventListener('click', () => setDrawing(!state.drawing));
  ui.clearDrawing.addEventListener('click', clearCanvas);
  ui.sendDrawing.addEventListener('click', async () => {
    if (!state.selectedId || !state.drawn) return;
    const png = ui.canvas.toDataURL('image/png');
    if (await act('POST', visitPath('drawing'), { png }, 'Drawing')) {
      clearCanvas();
      setDrawing(false);
    }
  });

  renderSelection();
  refreshVisits();
  refreshCalls();
  pollEvents();
  pollChat();
})();
