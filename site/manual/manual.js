// Opens the manual at the section that the address names: ?show=TOPIC.

const topic = new URLSearchParams(location.search).get('show');
const heading = topic && document.getElementById(topic)?.querySelector('h1, h2, h3');
if (heading) {
  heading.tabIndex = -1;
  heading.focus({ preventScroll: true });
  heading.scrollIntoView();
  document.querySelector(`nav.contents a[href="#${CSS.escape(topic)}"]`)
    ?.setAttribute('aria-current', 'true');
} else if (topic) {
  const notice = document.getElementById('no-such-topic');
  notice.querySelector('b').textContent = topic;
  notice.hidden = false;
}
