// A compact list of the recording servers: which are up, and why others are not.
import { fromTemplate, setText } from './dom.js';
import { sentence } from './sentence.js';

// `list`: the <ul>. Without servers it is not shown.
export function showServers(list, servers) {
  list.hidden = servers.length === 0;
  while (list.children.length > servers.length) list.lastElementChild.remove();
  servers.forEach(({ name, state, reason }, index) => {
    const item = list.children[index] ?? list.appendChild(fromTemplate('server'));
    const down = state === 'down';
    item.dataset.state = state;
    setText(item.querySelector('.name'), name);
    setText(item.querySelector('.word'), down ? 'down' : 'up');
    setText(item.querySelector('.reason'), down ? sentence(reason ?? '') : '');
  });
}

// The name of a camera's server beside the camera's own; nothing for this host's cameras.
export function showServerName(element, name = '') {
  element.hidden = !name;
  setText(element.querySelector('.text'), name);
}

// The names of cameras' servers by camera id, '' for this host's cameras.
export const serverNamesOf = (cameras) => new Map(cameras.map(({ id, serverName = '' }) => [id, serverName]));
