// Small helpers for making elements.

/** element('button', { class: 'pill', type: 'button' }, child, 'text', ...) */
export function element(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === true) made.setAttribute(name, '');
    else if (value !== false && value !== undefined) made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}

export function icon(name) {
  const svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  svg.setAttribute('aria-hidden', 'true');
  const use = document.createElementNS('http://www.w3.org/2000/svg', 'use');
  use.setAttribute('href', `#i-${name}`);
  svg.append(use);
  return svg;
}

export const byId = (id) => document.getElementById(id);

/** Opens a dialog; a click beside it or on its [data-close] closes it. */
export function openDialog(dialog) {
  if (!dialog.open) dialog.showModal();
}
for (const dialog of document.querySelectorAll('dialog')) {
  dialog.addEventListener('click', (event) => {
    if (event.target === dialog || event.target.closest('[data-close]')) dialog.close();
  });
}
