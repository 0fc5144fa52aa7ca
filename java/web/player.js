// The player view: direct play where the browser can take the file as it
// is, else the server's HLS conversion (natively where the browser plays
// HLS, else through hls.js); the server's subtitle tracks; keyboard keys;
// the resume position of every video in localStorage.
'use strict';

(function () {
  const Q = window.Quillon;
  const HLS_SCRIPT = 'vendor/hls.light.min.js';
  const HLS_TYPE = 'application/vnd.apple.mpegurl';
  const SEEK_STEP = 10;
  const BUSY_RETRY_SECONDS = 10;
  // "?player=hls.js" skips the browser's own HLS, for browsers whose native
  // HLS misbehaves (and for trying the bundled player).
  const FORCE_HLS_JS = new URLSearchParams(location.search).get('player') === 'hls.js';

  // ---- resume positions ----

  const RESUME = 'quillon.resume';
  const RESUME_LIMIT = 300;

  Q.resumePositions = function () {
    try {
      const all = JSON.parse(localStorage.getItem(RESUME));
      return all && typeof all === 'object' ? all : {};
    } catch (e) {
      return {};
    }
  };

  // Near the start or the end there is nothing to resume.
  function saveResume(id, time, duration) {
    if (!id || !isFinite(time)) return;
    const all = Q.resumePositions();
    delete all[id];
    const nearEnd = isFinite(duration) && duration > 0 && time > duration - Math.max(15, duration * 0.03);
    if (time >= 5 && !nearEnd) all[id] = { t: Math.floor(time), d: isFinite(duration) ? Math.floor(duration) : null };
    const keys = Object.keys(all);
    for (let i = 0; i < keys.length - RESUME_LIMIT; ++i) delete all[keys[i]];
    try { localStorage.setItem(RESUME, JSON.stringify(all)); } catch (e) { /* storage full or off */ }
  }

  // ---- what the browser can play ----

  const CONTAINERS = { mp4: 'video/mp4', m4v: 'video/mp4', mov: 'video/mp4', webm: 'video/webm', mkv: 'video/x-matroska', ogv: 'video/ogg' };
  const VIDEO_CODECS = { h264: 'avc1.640028', avc1: 'avc1.640028', hevc: 'hvc1.1.6.L120.90', h265: 'hvc1.1.6.L120.90', vp8: 'vp8', vp9: 'vp09.00.40.08', av1: 'av01.0.08M.08' };
  const AUDIO_CODECS = { aac: 'mp4a.40.2', mp3: 'mp4a.69', opus: 'opus', vorbis: 'vorbis', flac: 'flac', ac3: 'ac-3', eac3: 'ec-3' };

  // The MIME type to ask the browser about, with codecs where they are known.
  // Names usually come without their extension: then the codecs tell WebM
  // (VP8, VP9, Vorbis) from MP4.
  function mediaType(item) {
    const ext = (/\.([a-z0-9]+)$/i.exec(item.name || '') || [])[1];
    const video = String(item.videoCodec).toLowerCase();
    const audio = String(item.audioCodec).toLowerCase();
    const webm = video === 'vp8' || video === 'vp9' || audio === 'vorbis';
    const container = CONTAINERS[(ext || '').toLowerCase()] || (webm ? 'video/webm' : 'video/mp4');
    const codecs = [VIDEO_CODECS[video], AUDIO_CODECS[audio]].filter(Boolean);
    return codecs.length ? `${container}; codecs="${codecs.join(', ')}"` : container;
  }

  function canDirectPlay(video, item) {
    return Boolean(item.directPlay && item.stream) && video.canPlayType(mediaType(item)) !== '';
  }

  let hlsScript = null;
  function loadHlsJs() {
    if (window.Hls) return Promise.resolve(window.Hls);
    if (!hlsScript) {
      hlsScript = new Promise((resolve, reject) => {
        const script = document.createElement('script');
        script.src = HLS_SCRIPT;
        script.onload = () => (window.Hls ? resolve(window.Hls) : reject(new Error('hls.js did not load')));
        script.onerror = () => { hlsScript = null; reject(new Error('hls.js could not be fetched')); };
        document.head.append(script);
      });
    }
    return hlsScript;
  }

  // ---- subtitles ----

  const LANGUAGE_TAG = /^[a-z]{2,3}(-[a-z0-9]{2,8})*$/i;
  let languageNames = null;
  function languageName(code) {
    try {
      languageNames = languageNames || new Intl.DisplayNames(['en'], { type: 'language' });
      return languageNames.of(code);
    } catch (e) {
      return null;
    }
  }

  // The track to show: the first the server marks as in a preferred
  // language, or, from servers that only list the languages, the first
  // whose language is one of them.
  function preferredTrack(subtitles, style) {
    if (subtitles.some((s) => typeof s.preferred === 'boolean')) return subtitles.findIndex((s) => s.preferred);
    const wanted = ((style && style.preferredLanguages) || []).map((l) => String(l).toLowerCase());
    if (!wanted.length) return -1;
    return subtitles.findIndex((s) => {
      const code = String(s.language || '').toLowerCase();
      const name = code && LANGUAGE_TAG.test(code) ? String(languageName(code) || '').toLowerCase() : '';
      return (code && wanted.includes(code)) || (name && wanted.includes(name));
    });
  }

  function addTracks(video, subtitles, style) {
    subtitles.forEach((s, i) => {
      const track = document.createElement('track');
      track.kind = 'subtitles';
      const language = s.language && LANGUAGE_TAG.test(s.language) ? s.language : '';
      if (language) track.srclang = language;
      track.label = s.label || (language && languageName(language)) || `Subtitles ${i + 1}`;
      track.src = s.url;
      video.append(track);
    });
    const shown = preferredTrack(subtitles, style);
    if (shown >= 0) video.querySelectorAll('track')[shown].default = true;
    // The browser's own choice (by its user's language) runs once the media
    // is ready and would show a second track: ours is set again after it.
    const choose = () => Array.from(video.textTracks).forEach((track, i) => {
      track.mode = i === shown ? 'showing' : 'disabled';
    });
    choose();
    video.addEventListener('loadedmetadata', () => setTimeout(choose, 0), { once: true });
    return shown;
  }

  // ---- the player ----

  let active = null; // {video, item, hls, timers, saved}

  Q.stopPlayback = function () {
    if (!active) return;
    const { video, item } = active;
    if (video.currentTime > 0) saveResume(item.id, video.currentTime, video.duration || item.duration);
    active.closed = true;
    active.timers.forEach(clearTimeout);
    if (active.hls) active.hls.destroy();
    video.pause();
    video.removeAttribute('src');
    video.load(); // ends the download
    active = null;
    delete document.body.dataset.playback;
  };

  function playerMessage(text, action, onAction) {
    const box = active.overlay;
    box.replaceChildren(Object.assign(document.createElement('p'), { textContent: text }));
    if (action) {
      const button = Object.assign(document.createElement('button'), { type: 'button', className: 'button', textContent: action });
      button.addEventListener('click', onAction);
      box.append(button);
    }
    box.hidden = false;
  }

  function clearMessage() {
    if (active) active.overlay.hidden = true;
  }

  function setPath(path) {
    document.body.dataset.playback = path;
    const label = active.pathLabel;
    label.textContent = path === 'direct' ? 'Direct play' : 'Converted for this browser';
    label.hidden = false;
  }

  function startDirect(start) {
    const { video, item } = active;
    setPath('direct');
    video.src = start > 0 ? `${item.stream}#t=${start}` : item.stream;
    video.play().catch(() => { /* autoplay refused: the controls are there */ });
  }

  // The browser's own HLS does not tell why a playlist failed: the playlist is
  // asked for first, so that a busy server (503) or a password (401) gets its
  // message. The server keeps the conversion the first request started.
  async function startNativeHls(start) {
    const state = active;
    const { video, item } = state;
    setPath('native-hls');
    let status;
    try {
      status = (await fetch(location.origin + item.hls, { cache: 'no-store', credentials: 'same-origin' })).status;
    } catch (e) {
      status = 0;
    }
    if (state.closed) return;
    if (status === 503 && state.busyTries++ < 30) {
      playerMessage(`The server is already converting two other videos. Trying again in ${BUSY_RETRY_SECONDS} seconds…`);
      state.timers.push(setTimeout(() => { if (!state.closed) { clearMessage(); startNativeHls(start); } }, BUSY_RETRY_SECONDS * 1000));
      return;
    }
    if (status === 401) {
      playerMessage('The server asks for its password again.', 'Sign in', () => location.reload());
      return;
    }
    if (status < 200 || status >= 300) {
      const why = status ? `The server could not convert this video (HTTP ${status}).` : 'The connection to Quillon Server was lost.';
      playerMessage(why, 'Try again', () => { clearMessage(); startNativeHls(start); });
      return;
    }
    video.src = item.hls;
    if (start > 0) video.addEventListener('loadedmetadata', () => { video.currentTime = start; }, { once: true });
    video.play().catch(() => {});
  }

  function startHls(start) {
    const state = active;
    const { video, item } = state;
    if (state.hls) { state.hls.destroy(); state.hls = null; }
    if (!item.hls) { playerMessage('This video cannot be played in this browser.'); return; }
    if (!FORCE_HLS_JS && video.canPlayType(HLS_TYPE)) {
      startNativeHls(start);
      return;
    }
    loadHlsJs().then((Hls) => {
      if (state.closed) return;
      if (!Hls.isSupported()) { playerMessage('This browser cannot play converted videos.'); return; }
      setPath('hls.js');
      const hls = new Hls({
        startPosition: start > 0 ? start : -1,
        enableWorker: true,
        // The server converts on request: the first bytes of a segment can take a while.
        fragLoadPolicy: { default: {
          maxTimeToFirstByteMs: 30000, maxLoadTimeMs: 120000,
          timeoutRetry: { maxNumRetry: 2, retryDelayMs: 0, maxRetryDelayMs: 0 },
          errorRetry: { maxNumRetry: 3, retryDelayMs: 1000, maxRetryDelayMs: 8000 } } },
      });
      state.hls = hls;
      let recovered = false;
      hls.on(Hls.Events.ERROR, (event, data) => {
        if (!data.fatal || state.closed) return;
        if (data.type === Hls.ErrorTypes.MEDIA_ERROR && !recovered) {
          recovered = true;
          hls.recoverMediaError();
          return;
        }
        const status = data.response && data.response.code;
        const at = video.currentTime || start;
        hls.destroy();
        state.hls = null;
        if (status === 503 && state.busyTries++ < 30) {
          playerMessage(`The server is already converting two other videos. Trying again in ${BUSY_RETRY_SECONDS} seconds…`);
          state.timers.push(setTimeout(() => { if (!state.closed) { clearMessage(); startHls(at); } }, BUSY_RETRY_SECONDS * 1000));
        } else if (status === 401) {
          playerMessage('The server asks for its password again.', 'Sign in', () => location.reload());
        } else if (data.type === Hls.ErrorTypes.NETWORK_ERROR) {
          playerMessage('The connection to Quillon Server was lost.', 'Try again', () => { clearMessage(); startHls(at); });
        } else {
          playerMessage('This video cannot be played in this browser.');
        }
      });
      hls.on(Hls.Events.MANIFEST_PARSED, () => video.play().catch(() => {}));
      hls.loadSource(item.hls);
      hls.attachMedia(video);
    }).catch(() => {
      if (!state.closed) playerMessage('The HLS player could not be loaded from the server.', 'Try again', () => { clearMessage(); startHls(start); });
    });
  }

  function onKey(event) {
    if (!active || event.defaultPrevented || event.ctrlKey || event.metaKey || event.altKey) return;
    const target = event.target;
    const tag = target && target.tagName;
    if (tag === 'INPUT' || tag === 'TEXTAREA' || tag === 'SELECT' || (target && target.isContentEditable)) return;
    const video = active.video;
    if (event.key === ' ' || event.key === 'Spacebar') {
      if (tag === 'BUTTON' || tag === 'A') return; // their own activation
      event.preventDefault();
      if (video.paused || video.ended) video.play().catch(() => {});
      else video.pause();
    } else if (event.key === 'ArrowLeft' || event.key === 'ArrowRight') {
      event.preventDefault();
      const step = event.key === 'ArrowLeft' ? -SEEK_STEP : SEEK_STEP;
      const end = isFinite(video.duration) ? video.duration : Infinity;
      video.currentTime = Math.max(0, Math.min(end, video.currentTime + step));
    } else if (event.key === 'f' || event.key === 'F') {
      event.preventDefault();
      if (document.fullscreenElement) document.exitFullscreen().catch(() => {});
      else if (video.requestFullscreen) video.requestFullscreen().catch(() => {});
    }
  }
  document.addEventListener('keydown', onKey);
  window.addEventListener('pagehide', () => {
    if (active) saveResume(active.item.id, active.video.currentTime, active.video.duration);
  });

  function meta(item) {
    const parts = [];
    const length = Q.formatTime(item.duration);
    if (length) parts.push(length);
    if (item.width && item.height) parts.push(`${item.width}×${item.height}`);
    const codecs = [item.videoCodec, item.audioCodec].filter(Boolean).map((c) => String(c).toUpperCase());
    if (codecs.length) parts.push(codecs.join(' / '));
    return parts;
  }

  // The view for one item; `started` begins playback once it is on the page.
  Q.playView = function (item, style, backHref) {
    Q.stopPlayback();
    Q.applyStyle(style);
    const video = document.createElement('video');
    video.id = 'video';
    video.controls = true;
    video.playsInline = true;
    video.preload = 'metadata';
    video.setAttribute('aria-label', item.name);
    if (item.thumbnail) video.poster = item.thumbnail;
    const overlay = Object.assign(document.createElement('div'), { className: 'player-message', hidden: true });
    overlay.setAttribute('role', 'alert');

    const subtitles = Array.isArray(item.subtitles) ? item.subtitles.filter((s) => s && s.url) : [];
    const pathLabel = Object.assign(document.createElement('span'), { className: 'path', id: 'playback-path', hidden: true });
    const info = document.createElement('div');
    info.className = 'play-info';
    const title = Object.assign(document.createElement('h1'), { id: 'view-title', textContent: item.name });
    const line = Object.assign(document.createElement('p'), { className: 'meta' });
    for (const part of meta(item)) line.append(Object.assign(document.createElement('span'), { textContent: part }));
    if (subtitles.length) line.append(Object.assign(document.createElement('span'), { textContent: `${subtitles.length} subtitle track${subtitles.length === 1 ? '' : 's'}` }));
    line.append(pathLabel);
    const resumeLine = Object.assign(document.createElement('p'), { className: 'resume', hidden: true });
    const keys = document.createElement('p');
    keys.className = 'keys';
    keys.innerHTML = '<kbd>Space</kbd> play or pause · <kbd>←</kbd> <kbd>→</kbd> 10 seconds back or on · <kbd>F</kbd> full screen';
    const back = Object.assign(document.createElement('a'), { className: 'button quiet', href: backHref, textContent: 'Back to the folder' });
    info.append(title, line, resumeLine, keys, back);

    const player = Object.assign(document.createElement('div'), { className: 'player' });
    player.append(video, overlay);
    const view = document.createElement('section');
    view.className = 'view play';
    view.setAttribute('aria-labelledby', 'view-title');
    view.append(player, info);

    const saved = Q.resumePositions()[item.id];
    const start = saved && saved.t > 0 ? saved.t : 0;

    const started = () => {
      active = { video, item, overlay, pathLabel, hls: null, timers: [], busyTries: 0, closed: false, triedHls: false };
      const state = active;
      addTracks(video, subtitles, style);
      if (start > 0) {
        const again = Object.assign(document.createElement('button'), { type: 'button', className: 'button quiet', textContent: 'Start over' });
        again.addEventListener('click', () => { video.currentTime = 0; resumeLine.hidden = true; video.play().catch(() => {}); });
        resumeLine.append(`Resumed at ${Q.formatTime(start)}.`, again);
        resumeLine.hidden = false;
      }
      let lastSave = 0;
      video.addEventListener('timeupdate', () => {
        if (Date.now() - lastSave < 5000) return;
        lastSave = Date.now();
        saveResume(item.id, video.currentTime, video.duration || item.duration);
      });
      video.addEventListener('pause', () => saveResume(item.id, video.currentTime, video.duration || item.duration));
      video.addEventListener('playing', clearMessage);
      video.addEventListener('ended', () => saveResume(item.id, 0, video.duration));
      // A file the browser turns down after all goes through the conversion.
      video.addEventListener('error', () => {
        const path = document.body.dataset.playback;
        if (state.closed || !video.error) return;
        if (path === 'native-hls') {
          const at = video.currentTime || start;
          playerMessage('The converted video stopped playing.', 'Try again', () => { clearMessage(); startNativeHls(at); });
          return;
        }
        if (path !== 'direct') return; // hls.js reports its own errors
        if (!state.triedHls && item.hls) {
          state.triedHls = true;
          startHls(video.currentTime || start);
        } else {
          playerMessage('This video cannot be played in this browser.');
        }
      });
      if (canDirectPlay(video, item)) startDirect(start);
      else startHls(start);
    };
    return { view, title: item.name, started };
  };
})();
