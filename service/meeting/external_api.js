// Stand-in for a meeting service's iframe API: the part of JitsiMeetExternalAPI the kit's call
// page uses. The meeting runs in an iframe from this server; the page there posts its events up
// here and this relays them to the listeners.
(function () {
  'use strict';

  const EVENTS = ['videoConferenceJoined', 'videoConferenceLeft', 'readyToClose'];

  // Numbers are pixels, strings are taken as they are (e.g. '100%').
  function cssSize(value, fallback) {
    if (typeof value === 'number') return value + 'px';
    return typeof value === 'string' && value ? value : fallback;
  }

  // The options the meeting page reads from its URL's fragment: key=<URL-encoded JSON>, as
  // meeting services take their URL configuration.
  function fragment(options) {
    const parts = [];
    const add = (key, value) => {
      if (value !== undefined && value !== null) {
        parts.push(key + '=' + encodeURIComponent(JSON.stringify(value)));
      }
    };
    const userInfo = options.userInfo || {};
    add('userInfo.displayName', userInfo.displayName);
    add('userInfo.email', userInfo.email);
    for (const [key, value] of Object.entries(options.configOverwrite || {})) {
      add('config.' + key, value);
    }
    for (const [key, value] of Object.entries(options.interfaceConfigOverwrite || {})) {
      add('interfaceConfig.' + key, value);
    }
    return parts.join('&');
  }

  function JitsiMeetExternalAPI(domain, options) {
    if (!(this instanceof JitsiMeetExternalAPI)) return new JitsiMeetExternalAPI(domain, options);
    options = options || {};
    this._listeners = new Map();
    let src = 'https://' + domain + '/' + encodeURIComponent(options.roomName || '');
    if (options.jwt) src += '?jwt=' + encodeURIComponent(options.jwt);
    const hash = fragment(options);
    if (hash) src += '#' + hash;

    const frame = document.createElement('iframe');
    frame.allow = 'camera; microphone; display-capture; autoplay; fullscreen';
    frame.name = 'vistrelMeeting';
    frame.style.width = cssSize(options.width, '100%');
    frame.style.height = cssSize(options.height, '100%');
    frame.style.border = '0';
    frame.src = src;
    (options.parentNode || document.body).appendChild(frame);
    this._frame = frame;

    // Only the meeting's own frame speaks for it.
    this._onMessage = (event) => {
      if (!this._frame || event.source !== this._frame.contentWindow) return;
      const message = event.data || {};
      if (message.vistrelMeeting !== 'event' || !EVENTS.includes(message.name)) return;
      this._emit(message.name, message.data || {});
    };
    window.addEventListener('message', this._onMessage);
  }

  JitsiMeetExternalAPI.prototype._emit = function (name, data) {
    // A copy, so that a listener may remove itself or dispose of the API.
    for (const listener of [...(this._listeners.get(name) || [])]) {
      try {
        listener(data);
      } catch (error) {
        console.error(error);
      }
    }
  };

  JitsiMeetExternalAPI.prototype.addListener = function (name, listener) {
    if (!this._listeners.has(name)) this._listeners.set(name, []);
    this._listeners.get(name).push(listener);
    return this;
  };
  JitsiMeetExternalAPI.prototype.on = JitsiMeetExternalAPI.prototype.addListener;
  JitsiMeetExternalAPI.prototype.addEventListener = JitsiMeetExternalAPI.prototype.addListener;

  JitsiMeetExternalAPI.prototype.removeListener = function (name, listener) {
    const listeners = this._listeners.get(name) || [];
    const index = listeners.indexOf(listener);
    if (index >= 0) listeners.splice(index, 1);
    return this;
  };
  JitsiMeetExternalAPI.prototype.off = JitsiMeetExternalAPI.prototype.removeListener;
  JitsiMeetExternalAPI.prototype.removeEventListener = JitsiMeetExternalAPI.prototype.removeListener;

  JitsiMeetExternalAPI.prototype.removeAllListeners = function (name) {
    if (name === undefined) this._listeners.clear();
    else this._listeners.delete(name);
    return this;
  };

  // 'hangup' leaves the meeting; 'subject' and 'displayName' change what the page shows.
  JitsiMeetExternalAPI.prototype.executeCommand = function (name, ...args) {
    if (!this._frame || !this._frame.contentWindow) return;
    this._frame.contentWindow.postMessage({ vistrelMeeting: 'command', name, args }, '*');
  };

  JitsiMeetExternalAPI.prototype.getIFrame = function () {
    return this._frame;
  };

  JitsiMeetExternalAPI.prototype.dispose = function () {
    window.removeEventListener('message', this._onMessage);
    if (this._frame) this._frame.remove();
    this._frame = null;
    this._listeners.clear();
  };

  window.JitsiMeetExternalAPI = JitsiMeetExternalAPI;
})();
