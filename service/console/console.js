// The agent console: follows the local service's live feed, reads its console API and drives the
// selected conversation's current visit.
// Plain script, no build step; the element ids and data-testid values are documented in
// docs/protocol.md ("Agent console") because browser tests rely on them.
'use strict';

(function () {
  const API = '/console/api';
  const LIVE_PATH = '/console/api/live';
  const SCALE = 3;              // screenshots are a third of the device's pixel size
  const RECONNECT_MS = 1000;    // the live feed reconnects after this, refreshing everything
  const POLLER_STALE_MS = 30000; // devices poll every few seconds; a silent one has gone
  const MAX_ENTRIES = 500;

  const $ = (id) => document.getElementById(id);
  const ui = {
    status: $('connection-status'),
    rows: $('visit-list').tBodies[0],
    table: $('visit-list'),
    empty: $('visit-list-empty'),
    pollerRows: $('poller-list').tBodies[0],
    pollerTable: $('poller-list'),
    pollerEmpty: $('poller-list-empty'),
    title: $('selected-visit'),
    area: $('screen-area'),
    stage: $('stage'),
    screen: $('screen'),
    placeholder: $('screen-placeholder'),
    canvas: $('drawing-canvas'),
    taps: $('tap-layer'),
    timeline: $('timeline'),
    actionStatus: $('action-status'),
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
    conversations: [],
    selectedId: null,        // the selected conversation
    chosen: false,           // the agent picked it (it is not left for a live one)
    selected: null,          // its newest summary
    since: 0,                // time line cursor
    primed: false,           // the first events answer of this conversation arrived
    fetching: false,         // an events request is under way
    again: false,            // a change arrived meanwhile: ask again when it returns
    shown: null,             // {visitId, index} of the screenshot on display
    loading: null,
    imageUrl: null,
    natural: null,           // {width, height} of the screenshot on display
    drawing: false,
    drawn: false,
    generation: 0,           // bumps on every selection, so late answers are dropped
    chatShown: '',           // the chat answer on display, to redraw only on change
    socket: null,
  };

  // The visit commands go to: the conversation's current visit.
  function visit() {
    return state.selected ? state.selected.visit : null;
  }

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
    ui.status.textContent = online ? 'Live' : 'Service unreachable, retrying…';
  }

  // The service pushes what changed; everything is then read over the JSON API. A console that
  // (re)connects reads everything, so nothing is lost while the feed was down.
  function connect() {
    const scheme = location.protocol === 'https:' ? 'wss://' : 'ws://';
    const socket = new WebSocket(scheme + location.host + LIVE_PATH);
    state.socket = socket;
    socket.onopen = () => {
      setConnection(true);
      refreshList();
      refreshEvents();
      refreshChat();
      refreshCalls();
    };
    socket.onmessage = (message) => {
      let change;
      try { change = JSON.parse(message.data); } catch (e) { return; }
      if (change.list) refreshList();
      if (change.chat) refreshChat();
      if (change.calls) refreshCalls();
      if (state.selectedId && (change.conversations || []).includes(state.selectedId)) {
        refreshEvents();
      }
    };
    socket.onclose = () => {
      setConnection(false);
      setTimeout(connect, RECONNECT_MS);
    };
  }

  // ---- conversation and poller lists ----------------------------------------------------

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

  function renderConversations() {
    ui.rows.replaceChildren();
    // Live ones first, newest first within each.
    const shown = [...state.conversations].sort((a, b) =>
      (a.state === 'live' ? 0 : 1) - (b.state === 'live' ? 0 : 1) ||
      (b.visit.openedAt || 0) - (a.visit.openedAt || 0));
    for (const conversation of shown) {
      const current = conversation.visit;
      const row = ui.rows.insertRow();
      row.dataset.testid = 'conversation-row';
      row.dataset.conversationId = conversation.id;
      row.dataset.visitId = current.id;
      row.dataset.state = conversation.state;
      const selected = conversation.id === state.selectedId;
      row.setAttribute('aria-selected', String(selected));
      if (selected) row.classList.add('selected');
      cell(row, current.shareId || '—', conversation.shareIds.join(' → '));
      cell(row, short(current.visitorId), current.visitorId);
      cell(row, current.screen || '—', current.screen);
      cell(row, conversation.state === 'live' ? time(current.lastReportAt) : 'ended',
           conversation.visitCount + (conversation.visitCount === 1 ? ' visit' : ' visits'));
      row.addEventListener('click', () => select(conversation.id, true));
    }
    ui.table.hidden = shown.length === 0;
    ui.empty.hidden = shown.length !== 0;
  }

  function renderPollers(pollers) {
    ui.pollerRows.replaceChildren();
    for (const poller of pollers) {
      const row = ui.pollerRows.insertRow();
      row.dataset.testid = 'poller-row';
      row.dataset.visitorId = poller.visitorId;
      cell(row, short(poller.visitorId), poller.visitorId);
      cell(row, poller.tenantId || '—', poller.tenantId);
      cell(row, time(poller.lastPollAt));
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = 'Co-browse';
      button.title = 'Start co-browsing on this device';
      button.dataset.testid = 'poller-cobrowse';
      button.addEventListener('click', () =>
        act('POST', '/pollers/' + encodeURIComponent(poller.visitorId) + '/co-browse', undefined,
            'Co-browsing start for visitor ' + short(poller.visitorId)));
      row.insertCell().append(button);
    }
    ui.pollerTable.hidden = pollers.length === 0;
    ui.pollerEmpty.hidden = pollers.length !== 0;
  }

  let listing = false;
  let listAgain = false;
  async function refreshList() {
    if (listing) { listAgain = true; return; }
    listing = true;
    try {
      const answer = await call('GET', '/conversations');
      if (!answer.ok || !answer.data) throw new Error('HTTP ' + answer.status);
      state.conversations = answer.data.conversations;
      const next = follow();
      if (next) select(next, false);
      renderConversations();
      // A device that changed its visitor id (its user was identified) leaves its old one behind.
      renderPollers(answer.data.pollers.filter((poller) => !poller.hasLiveVisit &&
        Date.now() - poller.lastPollAt < POLLER_STALE_MS));
    } catch (e) {
      setConnection(false);
    } finally {
      listing = false;
      if (listAgain) { listAgain = false; refreshList(); }
    }
  }

  // The conversation to show next, if not the selected one: the only live one, unless the agent
  // chose the selected one and it is still live. A device's new visits join its conversation,
  // so the console stays with the person through restarts and co-browsing starts.
  function follow() {
    const live = state.conversations.filter((c) => c.state === 'live');
    const current = state.conversations.find((c) => c.id === state.selectedId);
    if (current && (current.state === 'live' || state.chosen)) return null;
    return live.length === 1 && live[0].id !== state.selectedId ? live[0].id : null;
  }

  // ---- the selected conversation --------------------------------------------------------

  function select(id, chosen) {
    state.chosen = chosen;
    if (id === state.selectedId) return;
    state.generation += 1;
    Object.assign(state, {
      selectedId: id, selected: null, since: 0, primed: false, fetching: false, again: false,
      shown: null, loading: null, natural: null,
    });
    if (state.imageUrl) URL.revokeObjectURL(state.imageUrl);
    state.imageUrl = null;
    ui.screen.removeAttribute('src');
    delete ui.screen.dataset.screenshotIndex;
    delete ui.screen.dataset.visitId;
    ui.timeline.replaceChildren();
    ui.taps.replaceChildren();
    state.chatShown = '';
    renderChat([]);
    setDrawing(false);
    clearCanvas();
    renderConversations();
    renderSelection();
    refreshEvents();
  }

  function renderSelection() {
    const current = visit();
    if (!state.selectedId) {
      ui.title.textContent = 'No visit selected';
    } else if (current) {
      const share = current.shareId ? 'Share id ' + current.shareId : 'Visit ' + short(current.id);
      const ended = current.state === 'open' ? '' : ' (' + current.state + ')';
      ui.title.textContent = share + ' · ' + (current.screen || 'unknown screen') + ended;
    }
    const usable = !!current && current.state === 'open';
    for (const id of Object.keys(ui.commands)) $(id).disabled = !usable;
    ui.draw.disabled = !usable || !state.natural;
    ui.sendDrawing.disabled = !usable || !state.drawn;
    ui.clearDrawing.disabled = !state.drawn;
    for (const button of ui.chatButtons) button.disabled = !current || !current.visitorId;
    renderUser(current && current.user);
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

  // Read when the service says a chat changed, and when the current visit changes.
  async function refreshChat() {
    const current = visit();
    const generation = state.generation;
    if (!current || !current.visitorId) return;
    try {
      const answer = await call('GET', '/visits/' + encodeURIComponent(current.id) + '/chat');
      if (generation === state.generation && answer.ok && answer.data &&
          visit() && answer.data.visitorId === visit().visitorId) {
        applyChat(answer.data);
      }
    } catch (e) {
      setConnection(false);
    }
  }

  async function chatPost(path, body, done) {
    const current = visit();
    if (!current) return false;
    const generation = state.generation;
    const answer = await call('POST', '/visits/' + encodeURIComponent(current.id) + path, body)
      .catch(() => ({ ok: false, status: 0, data: null }));
    if (answer.ok) {
      if (generation === state.generation) applyChat(answer.data);
      report(done);
    } else {
      refused((answer.data && answer.data.error) || 'The service cannot be reached');
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

  // Reads the selected conversation's new time line events; one request at a time, and once
  // more if a change arrived meanwhile.
  async function refreshEvents() {
    const id = state.selectedId;
    if (!id) return;
    if (state.fetching) { state.again = true; return; }
    const generation = state.generation;
    state.fetching = true;
    try {
      const answer = await call('GET', '/conversations/' + encodeURIComponent(id) +
                                       '/events?since=' + state.since);
      if (generation === state.generation && answer.ok && answer.data) applyEvents(answer.data);
    } catch (e) {
      setConnection(false);
    } finally {
      if (generation === state.generation) {
        state.fetching = false;
        if (state.again) { state.again = false; refreshEvents(); }
      }
    }
  }

  function applyEvents(data) {
    const before = visit();
    state.selected = data.conversation;
    if (!before || before.id !== data.conversation.visit.id) refreshChat();
    const live = state.primed;  // the first answer is history: no markers for it
    for (const event of data.events) addEvent(event, live);
    state.since = data.next;
    state.primed = true;
    const current = data.conversation.visit;
    const shot = current.screenshot;
    const key = shot && current.id + ':' + shot.index;
    if (shot && key !== (state.shown && state.shown.key) && key !== state.loading) {
      loadScreenshot(current.id, shot, key);
    }
    renderSelection();
  }

  // Fetches and decodes the screenshot, then swaps it in, unless a newer one was asked for
  // meanwhile (state.loading names the newest asked for).
  async function loadScreenshot(visitId, shot, key) {
    const generation = state.generation;
    const wanted = () => generation === state.generation && state.loading === key;
    state.loading = key;
    try {
      const response = await fetch(API + '/visits/' + encodeURIComponent(visitId) +
                                   '/screenshots/' + shot.index);
      if (!response.ok) throw new Error('HTTP ' + response.status);
      const url = URL.createObjectURL(await response.blob());
      const image = new Image();
      image.src = url;
      await image.decode();
      if (!wanted()) {
        URL.revokeObjectURL(url);
        return;
      }
      const previous = state.imageUrl;
      state.imageUrl = url;
      state.shown = { key, visitId, index: shot.index };
      ui.screen.src = url;
      ui.screen.dataset.visitId = visitId;
      ui.screen.dataset.screenshotIndex = String(shot.index);
      // When it reached the service and when it showed here, for the browser tests.
      ui.screen.dataset.arrivedAt = String(shot.at);
      ui.screen.dataset.shownAt = String(Date.now());
      if (previous) URL.revokeObjectURL(previous);
      layout(image.naturalWidth, image.naturalHeight);
    } catch (e) {
      // Not shown; the next change asks again.
    } finally {
      if (wanted()) state.loading = null;
    }
  }

  // The screenshot at its own aspect ratio, as large as the screen area allows and never
  // below its own size; the stage is the image's size, so markers and drawing lie on it.
  function layout(width, height) {
    const changed = !state.natural || state.natural.width !== width ||
                    state.natural.height !== height;
    state.natural = { width, height };
    const room = { width: ui.area.clientWidth, height: ui.area.clientHeight };
    const scale = Math.max(1, Math.min(room.width / width, room.height / height));
    const shown = { width: Math.floor(width * scale), height: Math.floor(height * scale) };
    ui.stage.style.width = shown.width + 'px';
    ui.stage.style.height = shown.height + 'px';
    if (changed) {
      // The drawing is made in device pixels, as the device lays it over its screen.
      ui.canvas.width = width * SCALE;
      ui.canvas.height = height * SCALE;
      clearCanvas();
    }
    renderSelection();
  }

  new ResizeObserver(() => {
    if (state.natural) layout(state.natural.width, state.natural.height);
  }).observe(ui.area);

  // ---- time line ------------------------------------------------------------------------

  function describe(event) {
    switch (event.kind) {
    case 'visit':
      return [event.resumed ? 'Resumed' : 'Visit',
              [event.shareId && 'share id ' + event.shareId, 'over ' + event.transport,
               event.screen].filter(Boolean).join(' · ')];
    case 'ended':
      return ['Ended', (event.shareId ? 'share id ' + event.shareId + ': ' : '') +
                       (event.reason === 'silent' ? 'the device went silent'
                                                  : 'the device ended the visit')];
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
    case 'command': return ['Agent', event.text];
    default: return [event.kind, ''];
    }
  }

  function entry(kind, label, text, at) {
    const item = document.createElement('li');
    item.dataset.testid = 'timeline-entry';
    item.dataset.kind = kind;
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
    return item;
  }

  // A command's entry shows its state: queued, delivered (the device fetched it), done (the
  // device reported what it did).
  function commandState(commandId, name, text) {
    const item = ui.timeline.querySelector('[data-command-id="' + commandId + '"]');
    if (!item) return;
    item.dataset.state = name;
    item.querySelector('.state').textContent = text;
  }

  function addEvent(event, live) {
    if (event.kind === 'delivered') {
      commandState(event.commandId, 'delivered', 'delivered · ' + event.transport);
      return;
    }
    if (event.kind === 'result') {
      commandState(event.commandId, 'done', '→ ' + event.text);
      return;
    }
    const [label, text] = describe(event);
    const item = entry(event.kind, label, text, event.at);
    item.dataset.seq = String(event.seq);
    item.dataset.visitId = event.visitId;
    if (event.kind === 'command') {
      item.dataset.commandId = String(event.commandId);
      item.dataset.state = 'queued';
      const badge = document.createElement('span');
      badge.className = 'state';
      badge.dataset.testid = 'command-state';
      badge.textContent = 'queued';
      item.append(badge);
    }
    const current = visit();
    if (event.kind === 'tap' && live && current && event.visitId === current.id) {
      mark(event.x / SCALE, event.y / SCALE, false);
    }
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
      if (await act('POST', path, undefined, done)) refreshCalls();
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
  async function refreshCalls() {
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

  // The time line shows what was queued (the service logs it); refusals show here only.
  function report(text) {
    ui.actionStatus.textContent = text + ' queued';
    ui.actionStatus.classList.remove('error');
  }

  function refused(text) {
    ui.actionStatus.textContent = text;
    ui.actionStatus.classList.add('error');
    entry('error', 'Refused', text, Date.now());
  }

  async function act(method, path, body, done) {
    try {
      const answer = await call(method, path, body);
      if (answer.ok) report(done);
      else refused((answer.data && answer.data.error) || 'HTTP ' + answer.status);
      return answer.ok;
    } catch (e) {
      setConnection(false);
      refused('The service cannot be reached');
      return false;
    }
  }

  function visitPath(action) {
    return '/visits/' + encodeURIComponent(visit().id) + '/' + action;
  }

  ui.screen.addEventListener('click', (e) => {
    if (!visit() || !state.natural || state.drawing) return;
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
      if (visit()) act('POST', visitPath(action), undefined, label);
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
    if (!visit() || !state.drawn) return;
    const png = ui.canvas.toDataURL('image/png');
    if (await act('POST', visitPath('drawing'), { png }, 'Drawing')) {
      clearCanvas();
      setDrawing(false);
    }
  });

  renderSelection();
  connect();
})();
