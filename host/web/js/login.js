// The log-in form.
import { fromTemplate, setText } from './dom.js';
import { logIn } from './session.js';

export class LoginView {
  title = 'Log in';
  #form;
  #error;

  // `note`: a sentence on how the person got here, or ''. onDone(user) is called after a successful log-in.
  constructor(note, onDone) {
    this.element = fromTemplate('login');
    this.#form = this.element.querySelector('form');
    this.#error = this.element.querySelector('.login-error');
    const line = this.element.querySelector('.login-note');
    line.hidden = !note;
    setText(line, note);
    this.#form.addEventListener('submit', (event) => {
      event.preventDefault();
      this.#submit(onDone);
    });
  }

  focus() {
    const { account, passwd } = this.#form.elements;
    (account.value ? passwd : account).focus();
  }

  close() {}

  async #submit(onDone) {
    const { account, passwd } = this.#form.elements;
    const button = this.#form.querySelector('button');
    this.#fail('');
    button.setAttribute('aria-busy', 'true');
    button.disabled = true;
    try {
      onDone(await logIn(account.value, passwd.value));
    } catch (error) {
      this.#fail(error.message);
      passwd.select();
      passwd.focus();
    } finally {
      button.disabled = false;
      button.removeAttribute('aria-busy');
    }
  }

  #fail(text) {
    setText(this.#error, text);
    for (const input of this.#form.querySelectorAll('input')) {
      if (text) {
        input.setAttribute('aria-invalid', 'true');
        input.setAttribute('aria-describedby', this.#error.id);
      } else {
        input.removeAttribute('aria-invalid');
        input.removeAttribute('aria-describedby');
      }
    }
  }
}
