// Follows a running program: each of its passes is announced as an event, and then fetched.
'use strict';
{
  const RETRY = 2000;  // milliseconds until a closed stream is opened again

  // onModel(model) is called with all passes so far; onState(isRunning, reason) when the program
  // comes and goes.
  class Live {
    #model = null;
    #fetching = null;
    #again = false;

    constructor(onModel, onState) {
      this.onModel = onModel;
      this.onState = onState;
      this.#open();
    }

    #open() {
      const events = new EventSource('events');
      events.onopen = () => this.#update();
      events.onmessage = () => this.#update();
      events.onerror = () => {
        this.onState(false);
        // The browser opens a broken stream again by itself, but not a refused one.
        if (events.readyState === EventSource.CLOSED) {
          setTimeout(() => this.#open(), RETRY);
        }
      };
    }

    // Passes that are announced meanwhile are fetched together, afterwards.
    async #update() {
      if (this.#fetching) {
        this.#again = true;
        return;
      }
      this.#fetching = true;
      try {
        do {
          this.#again = false;
          await this.#fetch();
        } while (this.#again);
        this.onState(true);
      } catch {
        this.onState(false);
      } finally {
        this.#fetching = false;
      }
    }

    async #fetch() {
      const model = this.#model;
      let later = await get(model ? `vars.json?after=${model.pass}` : 'vars.json');
      if (model && later.start !== model.start) {
        later = await get('vars.json');
      }
      this.#model = model && !later.whole ? vek.data.append(model, later) : later;
      this.onModel(this.#model);
    }
  }

  async function get(url) {
    const response = await fetch(url, {cache: 'no-store'});
    if (!response.ok) {
      throw new Error(`${url}: ${response.status}`);
    }
    return vek.data.read(await response.json());
  }

  window.vek = {...window.vek, Live};
}
