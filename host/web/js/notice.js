// The one notice above the page: what keeps the live pictures from being shown, and what can be done.
import { setText } from './dom.js';

const find = (id) => document.getElementById(id);

// `action`: { label, run } or nothing.
export function showNotice(icon, text, action) {
  find('notice-icon').className = `icon icon-${icon}`;
  setText(find('notice-text'), text);
  const button = find('notice-action');
  button.hidden = !action;
  if (action) setText(button, action.label);
  button.onclick = action?.run ?? null;
  find('notice').hidden = false;
}

export function hideNotice() {
  find('notice').hidden = true;
}
