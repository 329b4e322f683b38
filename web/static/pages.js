// Pages that change by themselves, without losing what was typed. Everything works without it, too.
"use strict";

// The element stays, so that readers of the screen tell what is new in it. What is answered behind
// a later request is old.
let latest = 0;
async function show(id, request) {
  const number = ++latest;
  const answer = await fetch(request);
  const page = new DOMParser().parseFromString(await answer.text(), "text/html");
  if (number !== latest) {
    return;
  }
  const fresh = page.getElementById(id);
  const here = document.getElementById(id);
  if (fresh && here && fresh.innerHTML !== here.innerHTML) {
    here.replaceChildren(...fresh.childNodes);
  }
  here?.toggleAttribute("data-running", Boolean(fresh?.hasAttribute("data-running")));
}

// How far something is: asked again until the page says that it has ended.
async function follow() {
  while (document.querySelector("#live[data-running]")) {
    await new Promise((done) => setTimeout(done, 1000));
    await show("live", new Request(location.href)).catch(() => false);
  }
}

// What a form would do, a moment after the last key.
function preview(form) {
  let timer = 0;
  form.addEventListener("input", () => {
    clearTimeout(timer);
    timer = setTimeout(() => {
      const body = new URLSearchParams(new FormData(form));
      show("preview", new Request(form.dataset.preview, { method: "POST", body })).catch(() => false);
    }, 500);
  });
}

document.querySelectorAll("form[data-preview]").forEach(preview);
follow();
