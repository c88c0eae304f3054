// Ties the page together: who is logged in, which view is shown, when live pictures run.
import { SESSION_ENDED, UNREACHABLE } from './api.js';
import { CameraList } from './cameras.js';
import { choices } from './choices.js';
import { setText } from './dom.js';
import { GridView } from './grid.js';
import { abandonAll, closeAll } from './hls_session.js';
import { ViewInstance } from './instance.js';
import { LoginView } from './login.js';
import { hideNotice, showNotice } from './notice.js';
import { EventView } from './recordings/event_view.js';
import { forgetList } from './recordings/event_list.js';
import { ListView } from './recordings/list_view.js';
import { parseRoute } from './routes.js';
import * as session from './session.js';
import { SingleView } from './view.js';

const RETRY_MS = 3000;
const CLOSING_MS = 5000; // so long may the streams' ends hold up logging out

const list = new CameraList();
const instance = new ViewInstance();
let view = null; // what <main> shows
let user = null; // who is logged in
let admin = false;
let watching = false; // whether live pictures run
let trouble = null; // why the list of cameras cannot be had just now

function show(next) {
  view?.close();
  view = next;
  document.getElementById('main').replaceChildren(view.element);
  titlePage();
}

function titlePage() {
  setText(document.querySelector('title'), `${view.title} – Oculora`);
}

const VIEWS = {
  grid: ({ page }) => new GridView(page, onStreamEnd),
  camera: ({ id }) => new SingleView(id, onStreamEnd),
  recordings: ({ filter }) => new ListView(filter, onRefusal),
  recording: (to) => new EventView(to, admin, onRefusal),
};
const PARENTS = { camera: 'grid', recording: 'recordings' };

// Shows the view that the address names; coming back from one of its parts, that part gets the focus.
function route(before) {
  const to = parseRoute(location.hash);
  const place = PARENTS[to.name] ?? to.name;
  for (const link of document.querySelectorAll('.places a')) {
    if ((link.dataset.place === 'recordings') === (place === 'recordings')) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
  if (view?.follow?.(to)) return;
  if (place !== 'recordings') forgetList();
  show(VIEWS[to.name](to));
  view.show(watching, instance.id);
  if (list.loaded) updateView();
  setWatching(watching);
  view.focus(before && PARENTS[before.name] === to.name ? before.id : undefined);
}

function updateView() {
  view.update(list.cameras, list.servers);
  titlePage();
}

// --- Who is logged in

function enter(who) {
  user = who.user;
  admin = Boolean(who.admin);
  setText(document.getElementById('user'), user);
  document.getElementById('bar').hidden = false;
  list.loaded = false;
  route();
  setRunning();
}

function leave(note) {
  user = trouble = null;
  list.stop();
  watching = false;
  instance.reset();
  forgetList();
  hideNotice();
  document.getElementById('bar').hidden = true;
  show(new LoginView(note, enter));
  view.focus();
}

async function logOut() {
  list.stop();
  setWatching(false); // the streams end while the session still may end them
  await Promise.race([closeAll(), new Promise((resolve) => setTimeout(resolve, CLOSING_MS))]);
  try {
    await session.logOut();
  } catch (error) {
    if (error.code !== SESSION_ENDED) {
      trouble = error;
      setRunning();
      return;
    }
  }
  leave('You are logged out.');
}

// --- When live pictures run

// Everything runs only while the page is seen by somebody who is logged in.
function setRunning() {
  const seen = Boolean(user) && !document.hidden;
  if (seen) list.start();
  else list.stop();
  setWatching(seen && (watching || !trouble));
}

// The window claims the pictures that only one window may show, when it has any.
function setWatching(on) {
  watching = on;
  if (!on) instance.deactivate();
  else if (exclusive().length > 0) instance.activate();
  view?.show?.(watching, instance.id);
  renderNotice();
}

const exclusive = () => view?.pictures?.filter((picture) => picture.exclusive) ?? [];

function renderNotice() {
  if (user && instance.takenOver && exclusive().length > 0) {
    showNotice('windows', 'This view was taken over by another window.', {
      label: 'Resume here',
      run: () => instance.activate(true),
    });
  } else if (user && trouble) {
    const offline = trouble.code === UNREACHABLE;
    showNotice(offline ? 'offline' : 'power', `${trouble.message} Trying again.`);
  } else {
    hideNotice();
  }
}

// A stream ended: the list says whether the camera, its server, the session or the network is why; else another window
// may be, which never ends the streams of other servers.
async function onStreamEnd({ error, target }) {
  if (target.camera.remote) list.refreshServers();
  await list.refresh();
  if (!target.exclusive || target.camera.remote) return;
  const well = exclusive().filter(({ camera }) => !camera.remote && camera.state === 'streaming');
  if (!error && !trouble && well.length > 0 && !well.some((picture) => picture.live)) instance.lostAll();
}

// Something was refused: whether the session is over shows in the list of cameras.
const onRefusal = () => list.refresh();

list.addEventListener('change', () => {
  trouble = null;
  updateView();
  setRunning();
});

list.addEventListener('servers', updateView);

list.addEventListener('problem', ({ error }) => {
  if (error.code === SESSION_ENDED) {
    leave(error.message);
    return;
  }
  trouble = error;
  // Pictures that still come are left alone; else all start anew when the recorder is back.
  if (error.code === UNREACHABLE && !view.pictures?.some((picture) => picture.live)) setWatching(false);
  renderNotice();
});

choices.addEventListener('change', () => {
  updateView();
  setWatching(watching);
});

instance.addEventListener('change', () => {
  view?.show?.(watching, instance.id);
  renderNotice();
});
instance.addEventListener('free', setRunning);

// --- The window

document.addEventListener('visibilitychange', setRunning);
addEventListener('pagehide', () => {
  setWatching(false);
  abandonAll();
});
addEventListener('pageshow', (event) => event.persisted && setRunning());
addEventListener('hashchange', (event) => {
  if (user) route(parseRoute(new URL(event.oldURL).hash));
});
addEventListener('keydown', (event) => {
  if (event.defaultPrevented || event.altKey || event.ctrlKey || event.metaKey || event.shiftKey) return;
  if (user && view.onKey?.(event.key, event.target)) event.preventDefault();
});
document.getElementById('logout').addEventListener('click', logOut);

async function start() {
  try {
    const who = await session.current();
    if (who) enter(who);
    else leave('');
    hideNotice();
  } catch (error) {
    showNotice('offline', `${error.message} Trying again.`);
    setTimeout(start, RETRY_MS);
  }
}

start();
