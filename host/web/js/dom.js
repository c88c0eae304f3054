// Small helpers around the document: templates, announcements.

export function fromTemplate(id) {
  return document.getElementById(`${id}-template`).content.firstElementChild.cloneNode(true);
}

// Sets text only when it differs, so that nothing is laid out or announced anew for nothing.
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

const waiting = new Set();

// Says something to screen readers. What comes together is said together.
export function announce(text) {
  if (waiting.size === 0) {
    setTimeout(() => {
      document.getElementById('announcer').textContent = [...waiting].join(' ');
      waiting.clear();
    }, 300);
  }
  waiting.add(text);
}
