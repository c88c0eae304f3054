// The fields that choose which recordings are listed.
import { NO_FILTER } from './filter.js';

const fullName = ({ name, serverName }) => (serverName ? `${name} – ${serverName}` : name);

// `form`: the element. onChange(filter) is called when the user has chosen.
export class FilterForm {
  #form;
  #onChange;

  constructor(form, onChange) {
    this.#form = form;
    this.#onChange = onChange;
    form.addEventListener('submit', (event) => event.preventDefault());
    form.addEventListener('change', () => onChange(this.#read()));
    form.querySelector('.clear').addEventListener('click', () => onChange(NO_FILTER));
  }

  show(filter) {
    const { camera, day, from, to } = this.#form.elements;
    this.#keepOption(filter.camera);
    camera.value = String(filter.camera);
    for (const [field, value] of [[day, filter.day], [from, filter.from], [to, filter.to]]) {
      if (field.value !== value) field.value = value;
    }
    from.disabled = to.disabled = !filter.day;
    this.#form.querySelector('.clear').hidden = !filter.camera && !filter.day;
  }

  // The cameras there are.
  update(cameras) {
    const { camera } = this.#form.elements;
    const wanted = [[0, 'All cameras'], ...cameras.map((camera) => [camera.id, fullName(camera)])];
    const options = [...camera.options].map(({ value, text }) => [Number(value), text]);
    if (JSON.stringify(wanted) === JSON.stringify(options)) return;
    const chosen = Number(camera.value);
    camera.replaceChildren(...wanted.map(([id, name]) => new Option(name, id)));
    this.#keepOption(chosen);
    camera.value = String(chosen);
  }

  // A camera that was removed may still have recordings.
  #keepOption(id) {
    const { camera } = this.#form.elements;
    if (![...camera.options].some(({ value }) => Number(value) === id)) camera.append(new Option(`Camera ${id}`, id));
  }

  #read() {
    const { camera, day, from, to } = this.#form.elements;
    const times = day.value ? { from: from.value, to: to.value } : { from: '', to: '' };
    return { camera: Number(camera.value), day: day.value, ...times };
  }
}
