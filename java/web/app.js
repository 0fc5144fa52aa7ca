// The Quillon web player: browsing the library and the page around the
// player. The location lives in the hash (#/, #/sections/{id},
// #/sections/{id}/{folderId}, #/play/{itemId}) so that views can be
// bookmarked and the browser's back and forward buttons work.
'use strict';

const Q = window.Quillon = window.Quillon || {};

// ---- small helpers ----

// An element with attributes (on* as listeners) and children.
function h(tag, attrs, ...children) {
  const el = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs || {})) {
    if (value === null || value === undefined || value === false) continue;
    if (key.startsWith('on')) el.addEventListener(key.slice(2), value);
    else if (key === 'class') el.className = value;
    else el.setAttribute(key, value === true ? '' : value);
  }
  for (const child of children.flat()) {
    if (child !== null && child !== undefined && child !== false)
      el.append(child instanceof Node ? child : String(child));
  }
  return el;
}

const ICONS = {
  folder: 'M3 6.5A1.5 1.5 0 0 1 4.5 5h4.6l2 2h8.4A1.5 1.5 0 0 1 21 8.5v9a1.5 1.5 0 0 1-1.5 1.5h-15A1.5 1.5 0 0 1 3 17.5z',
  playlist: 'M4 6h12M4 11h12M4 16h7M17 14v6l5-3z',
  converted: 'M4 12a8 8 0 0 1 13.7-5.6L20 8.5M20 4v4.5h-4.5M20 12a8 8 0 0 1-13.7 5.6L4 15.5M4 20v-4.5h4.5',
  film: 'M4 5h16v14H4zM8 5v14M16 5v14M4 9h4M4 15h4M16 9h4M16 15h4',
  chevron: 'm9 6 6 6-6 6',
  lock: 'M6 11h12v9H6zM8.5 11V8a3.5 3.5 0 0 1 7 0v3',
  offline: 'M3 3l18 18M8.5 16.5a5 5 0 0 1 7 0M5 13a10 10 0 0 1 4-2.4M19 13a10 10 0 0 0-3.2-2.1M2 9.5a15 15 0 0 1 4.5-2.8M22 9.5A15 15 0 0 0 11 5.6M12 20h.01',
  alert: 'M12 4 2.5 20h19zM12 10v4.5M12 17.5h.01',
};

function icon(name) {
  const ns = 'http://www.w3.org/2000/svg';
  const svg = document.createElementNS(ns, 'svg');
  svg.setAttribute('viewBox', '0 0 24 24');
  svg.setAttribute('aria-hidden', 'true');
  svg.setAttribute('fill', name === 'folder' ? 'currentColor' : 'none');
  svg.setAttribute('stroke', 'currentColor');
  svg.setAttribute('stroke-width', name === 'folder' ? '0' : '2');
  svg.setAttribute('stroke-linecap', 'round');
  svg.setAttribute('stroke-linejoin', 'round');
  const path = document.createElementNS(ns, 'path');
  path.setAttribute('d', ICONS[name] || ICONS.film);
  svg.append(path);
  return svg;
}

// "1:05:09", "4:07"; empty for an unknown length.
Q.formatTime = function (seconds) {
  if (typeof seconds !== 'number' || !isFinite(seconds) || seconds < 0) return '';
  const s = Math.floor(seconds);
  const hours = Math.floor(s / 3600);
  const minutes = Math.floor((s % 3600) / 60);
  const rest = String(s % 60).padStart(2, '0');
  return hours ? `${hours}:${String(minutes).padStart(2, '0')}:${rest}` : `${minutes}:${rest}`;
};

// Lower case without accents, for the filter.
function folded(text) {
  return String(text || '').normalize('NFD').replace(/[\u0300-\u036f]/g, '').toLowerCase();
}

function plural(n, one, many) {
  return `${n} ${n === 1 ? one : many}`;
}

const enc = encodeURIComponent;
Q.href = {
  library: () => '#/',
  folder: (section, folder) => `#/sections/${enc(section)}` + (folder ? `/${enc(folder)}` : ''),
  play: (item) => `#/play/${enc(item)}`,
};

// ---- the API ----

class HttpError extends Error {
  constructor(status) { super(`HTTP ${status}`); this.status = status; }
}
class Unreachable extends Error {}
Q.HttpError = HttpError;
Q.Unreachable = Unreachable;

// A password-protected server answers 401. Requests go out without
// credentials until one is refused: then the same request with credentials
// lets the browser use the password it knows or show its own prompt. The
// page shows its message when no answer comes soon (the prompt is open, or
// a browser without prompts) and reloads the view once the password is in.
const CREDENTIALS = 'quillon.credentials';
const PROMPT_WAIT_MS = 1500;
let credentials = sessionStorage.getItem(CREDENTIALS) === 'same-origin' ? 'same-origin' : 'omit';

async function request(path, mode) {
  try {
    // From the origin: a page address with a user name in it would make fetch refuse.
    return await fetch(location.origin + path, { headers: { Accept: 'application/json' }, cache: 'no-store', credentials: mode });
  } catch (error) {
    throw new Unreachable(String(error));
  }
}

Q.api = async function (path) {
  let response = await request(path, credentials);
  if (response.status === 401 && credentials === 'omit') {
    credentials = 'same-origin';
    const asking = request(path, credentials);
    const quick = await Promise.race([asking, new Promise((resolve) => setTimeout(resolve, PROMPT_WAIT_MS))]);
    if (!quick) {
      asking.then((late) => {
        if (!late.ok) return;
        sessionStorage.setItem(CREDENTIALS, credentials);
        render();
      }, () => {});
      throw new HttpError(401);
    }
    response = quick;
  }
  if (!response.ok) throw new HttpError(response.status);
  if (credentials === 'same-origin') sessionStorage.setItem(CREDENTIALS, credentials);
  try {
    return await response.json();
  } catch (error) {
    throw new HttpError(502); // not the JSON of a Quillon server
  }
};

function listingPath(section, folder) {
  return `/api/sections/${enc(section)}` + (folder ? `/${enc(folder)}` : '');
}

// ---- what this tab has seen: folder parents for the breadcrumbs, and where
// each item was listed, so that a reloaded #/play/{id} finds it again ----

function remembered(key) {
  try { return JSON.parse(sessionStorage.getItem(key)) || {}; } catch (e) { return {}; }
}
function remember(key, map, limit) {
  const keys = Object.keys(map);
  for (let i = 0; i < keys.length - limit; ++i) delete map[keys[i]];
  try { sessionStorage.setItem(key, JSON.stringify(map)); } catch (e) { /* private mode: no memory */ }
}

const TRAIL = 'quillon.trail';
const PLACES = 'quillon.places';
let library = null; // the last /api/library answer

function trailKey(section, folder) { return `${section}/${folder || ''}`; }

// Records a listing: its own name, its subfolders' parent, its items' place.
function learn(section, folder, listing) {
  const trail = remembered(TRAIL);
  const own = trail[trailKey(section, folder)] || {};
  trail[trailKey(section, folder)] = { name: listing.name, parent: own.parent ?? null };
  for (const sub of listing.folders || [])
    trail[trailKey(section, sub.id)] = { name: sub.name, parent: folder || null };
  remember(TRAIL, trail, 2000);
  const places = remembered(PLACES);
  for (const item of listing.items || []) {
    delete places[item.id]; // re-added last: the newest are kept
    places[item.id] = { section, folder: folder || null };
  }
  remember(PLACES, places, 5000);
}

async function loadLibrary() {
  library = await Q.api('/api/library');
  if (!library || !Array.isArray(library.sections)) throw new HttpError(502);
  return library;
}

async function loadListing(section, folder) {
  const listing = await Q.api(listingPath(section, folder));
  if (!listing || typeof listing !== 'object') throw new HttpError(502);
  listing.folders = Array.isArray(listing.folders) ? listing.folders : [];
  listing.items = Array.isArray(listing.items) ? listing.items : [];
  learn(section, folder, listing);
  return listing;
}

// The breadcrumb entries above a folder: [{name, href}], the library first.
async function crumbsFor(section, folder) {
  const trail = remembered(TRAIL);
  let sectionName = (trail[trailKey(section, null)] || {}).name;
  if (!sectionName) {
    if (!library) { try { await loadLibrary(); } catch (e) { /* names are a nicety */ } }
    const found = library && library.sections.find((s) => s.id === section);
    sectionName = found ? found.name : 'Section';
  }
  const crumbs = [];
  let at = folder;
  for (let depth = 0; at && depth < 64; ++depth) {
    const entry = trail[trailKey(section, at)];
    if (!entry) { crumbs.unshift({ name: '…' }); break; }
    crumbs.unshift({ name: entry.name, href: Q.href.folder(section, at) });
    at = entry.parent;
  }
  return [{ name: 'Library', href: Q.href.library() }, { name: sectionName, href: Q.href.folder(section) }, ...crumbs];
}

// Finds an item by id: where this tab last saw it, else by walking the
// library (bounded), for a bookmarked #/play/{id}.
Q.findItem = async function (id) {
  const place = remembered(PLACES)[id];
  if (place) {
    try {
      const listing = await loadListing(place.section, place.folder);
      const item = listing.items.find((i) => i.id === id);
      if (item) return { item, ...place };
    } catch (error) {
      if (!(error instanceof HttpError && error.status === 404)) throw error;
    }
  }
  const lib = await loadLibrary();
  const queue = lib.sections.map((s) => ({ section: s.id, folder: null }));
  for (let asked = 0; queue.length && asked < 400; ++asked) {
    const next = queue.shift();
    let listing;
    try { listing = await loadListing(next.section, next.folder); } catch (error) {
      if (error instanceof HttpError && error.status === 404) continue;
      throw error;
    }
    const item = listing.items.find((i) => i.id === id);
    if (item) return { item, ...next };
    for (const sub of listing.folders) queue.push({ section: next.section, folder: sub.id });
  }
  return null;
};

// ---- the page's frame ----

const main = () => document.getElementById('main');
const filterBox = () => document.getElementById('filter');

function setCrumbs(crumbs) {
  const nav = document.getElementById('breadcrumbs');
  nav.replaceChildren();
  if (!crumbs || !crumbs.length) return;
  const list = h('ol');
  crumbs.forEach((crumb, i) => {
    const last = i === crumbs.length - 1;
    list.append(h('li', {}, last || !crumb.href
      ? h('span', { 'aria-current': last ? 'page' : null, title: crumb.name }, crumb.name)
      : h('a', { href: crumb.href, title: crumb.name }, crumb.name)));
  });
  nav.append(list);
}

function announce(text) {
  document.getElementById('announcer').textContent = text;
}

// Shows a view; focus goes to its heading unless the user is typing in the filter.
function show(view, title, { focus = true } = {}) {
  main().replaceChildren(view);
  document.title = title ? `${title} – Quillon Server` : 'Quillon Server';
  const heading = view.querySelector('h1');
  if (focus && heading && document.activeElement !== filterBox()) {
    heading.setAttribute('tabindex', '-1');
    heading.focus({ preventScroll: true });
  }
}

function loading() {
  const view = h('div', { class: 'loading', role: 'status' }, h('span', { class: 'spinner', 'aria-hidden': 'true' }), 'Loading…');
  view.hidden = true;
  // Only a slow answer shows it, so fast ones do not flicker.
  setTimeout(() => { view.hidden = false; }, 250);
  main().replaceChildren(view);
}

// A message in place of a view: 401, an unreachable server, other errors.
Q.errorView = function (error, retry) {
  let kind = 'error', iconName = 'alert', title = 'Something went wrong', text, action = 'Try again';
  if (error instanceof HttpError && error.status === 401) {
    kind = 'unauthorized'; iconName = 'lock'; title = 'This server needs a password';
    text = 'Quillon Server on this computer is protected by a password. Sign in with the password set in the server’s preferences when your browser asks for it (any user name works).';
    action = 'Sign in';
    retry = () => location.reload(); // a new request brings the browser's prompt back
  } else if (error instanceof Unreachable) {
    kind = 'unreachable'; iconName = 'offline'; title = 'Can’t reach Quillon Server';
    text = `Nothing answers at ${location.host}. Check that Quillon Server is running on the computer that shares the videos and that this device is on the same network, then try again.`;
  } else if (error instanceof HttpError && error.status === 404) {
    kind = 'not-found'; title = 'Not found';
    text = 'This folder or video is no longer shared. It may have been moved, renamed or removed from the shared folders.';
    action = null;
  } else if (error instanceof HttpError) {
    text = `The server answered with an error (HTTP ${error.status}). Try again in a moment.`;
  } else {
    text = 'The page ran into an unexpected problem. Reloading it usually helps.';
    console.error(error);
  }
  const view = h('div', { class: 'notice', id: 'notice', role: 'alert', 'data-kind': kind },
    h('div', { class: 'notice-icon' }, icon(iconName)),
    h('h1', {}, title),
    h('p', {}, text),
    action && retry ? h('button', { class: 'button', type: 'button', onclick: retry }, action) : null,
    kind === 'not-found' ? h('a', { class: 'button quiet', href: Q.href.library() }, 'Back to the library') : null);
  return view;
};

// ---- views ----

function row(href, iconName, name, detail) {
  return h('li', { 'data-filter': folded(name) },
    h('a', { class: 'row', href },
      h('span', { class: 'row-icon' }, icon(iconName)),
      h('span', { class: 'row-text' }, h('span', { class: 'row-name' }, name), detail ? h('span', { class: 'row-detail' }, detail) : null),
      h('span', { class: 'row-chevron' }, icon('chevron'))));
}

function durationBadge(seconds) {
  const length = Q.formatTime(seconds);
  return length ? h('span', { class: 'duration' }, h('span', { class: 'visually-hidden' }, 'Duration '), length) : null;
}

function card(item, saved) {
  const placeholder = h('span', { class: 'placeholder' }, icon('film'));
  const img = item.thumbnail ? h('img', { src: item.thumbnail, alt: '', loading: 'lazy', decoding: 'async' }) : null;
  if (img) {
    placeholder.hidden = true;
    img.addEventListener('error', () => { img.remove(); placeholder.hidden = false; });
  }
  const resume = saved && item.duration ? Math.min(100, (100 * saved.t) / item.duration) : 0;
  return h('li', { class: 'card', 'data-filter': folded(item.name), 'data-id': item.id },
    h('a', { href: Q.href.play(item.id), title: item.name },
      h('span', { class: 'thumb' }, img, placeholder, durationBadge(item.duration),
        resume ? h('span', { class: 'progress', role: 'presentation' }, h('span', { style: `width:${resume.toFixed(1)}%` })) : null),
      h('span', { class: 'card-name' }, item.name)));
}

const KIND_ICONS = { folder: 'folder', playlist: 'playlist', converted: 'converted' };

async function libraryView() {
  setCrumbs([]);
  const lib = await loadLibrary();
  Q.applyStyle(lib.style);
  const sections = lib.sections;
  const view = h('section', { class: 'view', 'aria-labelledby': 'view-title' },
    h('h1', { id: 'view-title' }, 'Library'),
    h('p', { class: 'summary' }, plural(sections.length, 'shared folder', 'shared folders')));
  if (!sections.length) {
    view.append(h('p', { class: 'empty' }, 'Nothing is shared yet. Add folders in Quillon Server’s preferences, on the Shared Folders tab.'));
  } else {
    view.append(h('ul', { class: 'rows', id: 'sections', 'aria-label': 'Shared folders' },
      sections.map((s) => row(Q.href.folder(s.id), KIND_ICONS[s.kind] || 'folder', s.name,
        typeof s.count === 'number' ? plural(s.count, 'video', 'videos') : null))));
  }
  return { view, title: 'Library' };
}

async function folderView(section, folder) {
  const listing = await loadListing(section, folder);
  const crumbs = await crumbsFor(section, folder);
  crumbs[crumbs.length - 1].name = listing.name; // the server's name wins
  setCrumbs(crumbs);
  const saved = Q.resumePositions();
  const parts = [];
  if (listing.folders.length) parts.push(plural(listing.folders.length, 'folder', 'folders'));
  parts.push(plural(listing.items.length, 'video', 'videos'));
  const view = h('section', { class: 'view', 'aria-labelledby': 'view-title' },
    h('h1', { id: 'view-title' }, listing.name),
    h('p', { class: 'summary' }, parts.join(' · ')));
  if (listing.folders.length) {
    view.append(h('h2', { id: 'folders-title' }, 'Folders'),
      h('ul', { class: 'rows', id: 'folders', 'aria-labelledby': 'folders-title' },
        listing.folders.map((f) => row(Q.href.folder(section, f.id), 'folder', f.name))));
  }
  if (listing.items.length) {
    view.append(h('h2', { id: 'videos-title' }, 'Videos'),
      h('ul', { class: 'grid', id: 'items', 'aria-labelledby': 'videos-title' },
        listing.items.map((item) => card(item, saved[item.id]))));
  } else if (!listing.folders.length) {
    view.append(h('p', { class: 'empty' }, 'This folder has no videos.'));
  }
  if (listing.items.some((item) => item.duration == null)) fillInDurations(section, folder, view, 0);
  return { view, title: listing.name };
}

// The server lists files before it has read their lengths: ask again a few
// times while the view is open and add the lengths that have come in.
const FILL_IN_DELAYS_MS = [2000, 5000, 15000];
let fillInTimer = null;

function fillInDurations(section, folder, view, attempt) {
  if (attempt >= FILL_IN_DELAYS_MS.length) return;
  fillInTimer = setTimeout(async () => {
    if (!view.isConnected) return;
    let listing;
    try { listing = await Q.api(listingPath(section, folder)); } catch (e) { return; }
    if (!view.isConnected || !listing || !Array.isArray(listing.items)) return;
    let missing = false;
    for (const item of listing.items) {
      const thumb = view.querySelector(`li[data-id="${CSS.escape(item.id)}"] .thumb`);
      if (!thumb || thumb.querySelector('.duration')) continue;
      const badge = durationBadge(item.duration);
      if (badge) thumb.append(badge);
      else missing = true;
    }
    if (missing) fillInDurations(section, folder, view, attempt + 1);
  }, FILL_IN_DELAYS_MS[attempt]);
}

// ---- the filter ----

function applyFilter() {
  const view = main();
  const words = folded(filterBox().value).split(/\s+/).filter(Boolean);
  let shown = 0, total = 0;
  for (const el of view.querySelectorAll('[data-filter]')) {
    const match = words.every((w) => el.dataset.filter.includes(w));
    el.hidden = !match;
    total += 1;
    if (match) shown += 1;
  }
  // Hide a group whose entries all went, heading included.
  for (const list of view.querySelectorAll('ul.rows, ul.grid')) {
    const empty = !list.querySelector('[data-filter]:not([hidden])');
    list.hidden = empty;
    const heading = list.getAttribute('aria-labelledby') && document.getElementById(list.getAttribute('aria-labelledby'));
    if (heading && heading.tagName === 'H2') heading.hidden = empty;
  }
  let none = view.querySelector('#no-match');
  if (total && !shown) {
    if (!none) view.querySelector('.view')?.append(none = h('p', { class: 'empty', id: 'no-match' }));
    if (none) none.textContent = `Nothing here matches “${filterBox().value.trim()}”.`;
  } else if (none) {
    none.remove();
  }
  if (words.length) announce(total && !shown ? 'No matches' : `${shown} of ${total} shown`);
}

// ---- routing ----

function parseRoute() {
  const parts = location.hash.replace(/^#\/?/, '').split('/').filter(Boolean);
  let decoded;
  try { decoded = parts.map(decodeURIComponent); } catch (e) { return { view: 'unknown' }; }
  if (!decoded.length) return { view: 'library' };
  if (decoded[0] === 'sections' && (decoded.length === 2 || decoded.length === 3))
    return { view: 'folder', section: decoded[1], folder: decoded[2] || null };
  if (decoded[0] === 'play' && decoded.length === 2) return { view: 'play', item: decoded[1] };
  return { view: 'unknown' };
}

let renderCount = 0;

async function render() {
  const token = ++renderCount;
  const route = parseRoute();
  clearTimeout(fillInTimer);
  Q.stopPlayback();
  filterBox().value = '';
  filterBox().disabled = route.view === 'play';
  loading();
  const current = () => token === renderCount;
  try {
    let result;
    if (route.view === 'library') result = await libraryView();
    else if (route.view === 'folder') result = await folderView(route.section, route.folder);
    else if (route.view === 'play') {
      const found = await Q.findItem(route.item);
      if (!current()) return;
      if (!found) throw new HttpError(404);
      if (!library) await loadLibrary(); // for the subtitle style
      const crumbs = await crumbsFor(found.section, found.folder);
      crumbs.push({ name: found.item.name });
      setCrumbs(crumbs);
      result = Q.playView(found.item, library && library.style, Q.href.folder(found.section, found.folder));
    } else {
      location.replace(Q.href.library());
      return;
    }
    if (!current()) { if (route.view === 'play') Q.stopPlayback(); return; }
    show(result.view, result.title);
    if (result.started) result.started();
  } catch (error) {
    if (!current()) return;
    setCrumbs(route.view === 'library' ? [] : [{ name: 'Library', href: Q.href.library() }]);
    show(Q.errorView(error, render), 'Quillon Server');
  }
}

// The subtitle style of the library, for every video on the page.
Q.applyStyle = function (style) {
  if (!style) return;
  let sheet = document.getElementById('cue-style');
  if (!sheet) document.head.append(sheet = h('style', { id: 'cue-style' }));
  const family = String(style.fontFamily || '').replace(/["\\;{}<>\n\r]/g, '').trim();
  const size = Number(style.fontSize);
  const rules = [];
  if (family) rules.push(`font-family: "${family}", system-ui, sans-serif;`);
  if (size > 0 && size <= 1000) rules.push(`font-size: ${size}%;`);
  sheet.textContent = rules.length ? `video::cue { ${rules.join(' ')} }` : '';
};

document.addEventListener('DOMContentLoaded', () => {
  document.getElementById('filter-form').addEventListener('submit', (e) => e.preventDefault());
  filterBox().addEventListener('input', applyFilter);
  window.addEventListener('hashchange', render);
  render();
});
