"""Works with mdomain-web on port 8025 as anna, who administers bücher.example, and as ben and erik, who
administer the host, do: web_browser.py FOLDER, where pictures of the pages go. Accounts of a directory:
web_browser.py "" @DOMAIN, which takes no pictures, in one language, and nobody meets."""

import base64
import contextlib
import fcntl
import os
import sys
import time

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

SITE = "http://127.0.0.1:8025"
DOMAIN = sys.argv[2] if len(sys.argv) > 2 else ""
# Of the model: two numbers, and the change that made bücher.example.
ERIK, SALES, MADE = ("20003", "30000", "4") if DOMAIN else ("1003", "2001", "2")
failures = 0


def same(name, got, want):
    global failures
    if got != want:
        failures += 1
        print(f"FAILED: {name}: got {got!r}, want {want!r}")


@contextlib.contextmanager
def start(with_scripts, language="en"):
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars"):
        options.add_argument(argument)
    preferences = {"intl.accept_languages": language}
    if not with_scripts:
        preferences["profile.managed_default_content_settings.javascript"] = 2
    options.add_experimental_option("prefs", preferences)
    browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        yield browser
    finally:
        browser.quit()


class Person:
    def __init__(self, browser):
        self.browser = browser

    def sign_in(self, name, labels=("Account", "Password", "Sign in")):
        self.browser.get(SITE)
        self.write(labels[0], name)
        self.write(labels[1], "of " + name)
        self.click(labels[2])
        return self

    def wait(self, what):
        """Until the page says so by itself."""
        try:
            WebDriverWait(self.browser, 30, ignored_exceptions=(Exception,)).until(lambda _: what in self.text())
        except TimeoutException:
            same(f"on {self.browser.current_url}: waiting for {what!r}", self.text(), "")

    def text(self):
        return self.browser.find_element(By.TAG_NAME, "main").text

    def click(self, what):
        """A link or a button by what it says, found with the keyboard alone."""
        page = self.browser.find_element(By.TAG_NAME, "html")
        self.browser.find_element(By.TAG_NAME, "body").send_keys(Keys.NULL)
        for _ in range(200):
            at = self.browser.switch_to.active_element
            if at.text.strip() == what and at.tag_name in ("a", "button"):
                at.send_keys(Keys.ENTER)
                WebDriverWait(self.browser, 30).until(lambda _: is_gone(page))
                return
            at.send_keys(Keys.TAB)
        same(f"on {self.browser.current_url}: a way to {what!r}", False, True)

    def fields(self, label):
        return [self.browser.find_element(By.ID, one.get_attribute("for"))
                for one in self.browser.find_elements(By.TAG_NAME, "label") if one.text.strip() == label]

    def write(self, label, text):
        """Into the field of a label."""
        for field in self.fields(label)[:1]:
            field.clear()
            field.send_keys(text)
            return
        same(f"on {self.browser.current_url}: a field {label!r}", False, True)

    def send(self, label):
        """The form of a field, by its first button."""
        page = self.browser.find_element(By.TAG_NAME, "html")
        self.fields(label)[0].find_element(By.XPATH, "ancestor::form//button").click()
        WebDriverWait(self.browser, 30).until(lambda _: is_gone(page))


def is_gone(element):
    try:
        element.is_enabled()
        return False
    except Exception:  # pylint: disable=broad-except
        return True


def picture(browser, folder, name):
    """The whole page, at both widths."""
    for width in (1280, 380) if folder else ():
        browser.set_window_size(width, 900)
        size = browser.execute_cdp_cmd("Page.getLayoutMetrics", {})["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": min(size["height"], 2000), "scale": 1}
        shot = browser.execute_cdp_cmd("Page.captureScreenshot", {"captureBeyondViewport": True, "clip": clip})
        with open(f"{folder}/{name}-{width}.png", "wb") as file:
            file.write(base64.b64decode(shot["data"]))


def work(browser, folder):
    anna = Person(browser)
    browser.get(SITE + "/domains/2/people")
    anna.write("Account", "anna")
    anna.write("Password", "of ben")
    anna.click("Sign in")
    same("a wrong password", "wrong" in anna.text(), True)
    anna.write("Account", "anna")
    anna.write("Password", "of anna")
    anna.click("Sign in")
    same("her domains", ["bücher.example" in anna.text(), "example.com" in anna.text()], [True, False])
    picture(browser, folder, "domains")

    anna.click("bücher.example")
    anna.click("People")
    same("the collision", "goes to erik" in anna.text(), True)
    picture(browser, folder, "people")
    anna.click("erika" + DOMAIN)
    picture(browser, folder, "collision")
    anna.click("Solve the collision")
    same("the plan", "erika@bücher.example" in anna.text(), True)
    picture(browser, folder, "plan")
    anna.click("Do it")
    same("solved", ["is also an alias" in anna.text(), "saved" in anna.text()], [False, True])

    anna.click("Disclaimers")
    anna.click("New disclaimer")
    anna.write("Name", "signature")
    anna.write("Mail that gets it", "sender address *@bücher.example")
    anna.write("Text", "No offer is final.")
    anna.click("Preview")
    picture(browser, folder, "preview")
    same("the preview", ["people gets it anna" in anna.text(), "No offer is final." in anna.text()], [True, True])
    anna.click("Save")
    anna.click("Do it")
    same("the disclaimer", "No offer is final." in anna.text(), True)

    anna.click("Shared addresses")
    anna.write("Part before the @", "team")
    anna.write("Accounts, one in each line", f"erik{DOMAIN}\nerika{DOMAIN}")
    anna.click("Create")
    anna.click("Leave it as it is")
    same("not created", "team" in anna.text(), False)
    anna.write("Part before the @", "team")
    anna.write("Accounts, one in each line", f"erik{DOMAIN}\nerika{DOMAIN}")
    anna.click("Create")
    anna.click("Do it")
    same("created", "team" in anna.text() or anna.text(), True)
    anna.click("History")
    anna.click("Take back")
    anna.click("Do it")
    browser.get(SITE + "/domains/2/entries")
    same("taken back", "team" in anna.text(), False)


OF_DOMAIN = ("", "/people", f"/people/{ERIK}", "/people/add", "/pattern", "/groups", f"/groups/{SALES}", "/entries",
             "/entries/desk", "/copies", "/disclaimers", "/disclaimers/1", "/disclaimers/new", "/picture")
OF_ALL = ["/", "/own", "/explain?address=erik@bücher.example", "/doctor", "/history", f"/history/{MADE}", "/tokens", "/no",
          *("/domains/2" + path for path in OF_DOMAIN), "/domains/2/pattern?pattern=<2a>"]
OF_HOST = ["/", "/domains/new", "/refresh", "/published", "/domains/1", "/domains/2"]


def look(browser, folder, paths):
    """Every page: names for what can be used, one heading, a title of its own, nothing beside the window."""
    titles = {}
    for path in paths:
        browser.get(SITE + path)
        titles.setdefault(browser.title, []).append(path)
        picture(browser, folder, path.replace("?pattern=<2a>", "-tried").split("?")[0].strip("/").replace("/", "-") or "start")
        same(path + ": headings", len(browser.find_elements(By.TAG_NAME, "h1")), 1)
        same(path + ": without a name", browser.execute_script("""
            return [...document.querySelectorAll('a, button, input:not([type=hidden]), select, textarea')]
                .filter(one => !one.textContent.trim() && !one.labels?.length).map(one => one.outerHTML)"""), [])
        same(path + ": said twice", browser.execute_script("""
            const ids = [...document.querySelectorAll('[id]')].map(one => one.id);
            return ids.filter((one, at) => ids.indexOf(one) != at)"""), [])
        for width in (1280, 380, 320):
            browser.set_window_size(width, 900)
            same(f"{path} at {width}: beside the window", browser.execute_script(
                "return document.documentElement.scrollWidth > document.documentElement.clientWidth"), False)
            same(f"{path} at {width}: too small", browser.execute_script("""
                return [...document.querySelectorAll('nav a, button, .button, summary, select, input:not([type=hidden], [type=checkbox])')]
                    .filter(one => { const at = one.getBoundingClientRect(); return at.width < 24 || at.height < 24; })
                    .map(one => one.outerHTML)"""), [])
        for scheme in ("dark", "light"):
            browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
            same(f"{path}: contrast, {scheme}", browser.execute_script(CONTRAST), [])
    same("pages with one title", [alike for alike in titles.values() if len(alike) > 1], [])
    browser.find_element(By.TAG_NAME, "body").send_keys(Keys.TAB)
    same("focus", browser.execute_script(
        "const at = document.activeElement; return [at.className, getComputedStyle(at).outlineStyle, at.getBoundingClientRect().x >= 0]"),
         ["skip", "solid", True])


# What the one writes, what the other one writes meanwhile, how he goes on, and what stands there then.
MINE, THEIRS = "Save mine over it", "Keep what is there now"
MEETINGS = (
    ("/domains/2", "Description", "ספרים", "Books", MINE, "Books"),
    ("/domains/2", "One name in each line", "one.example", "two.example", MINE, "one.example\ntwo.example"),
    ("/domains/2/people/1003", "Aliases, one in each line", "erik\nchief", "boss", MINE, "chief\nboss"),
    ("/domains/2/entries/desk", "Accounts, one in each line", "anna\nerik", "anna\nerika", THEIRS, "anna\nerik"),
    ("/domains/2/disclaimers/1", "Text", "First.", "Second.", MINE, "Second."),
    ("/domains/2/disclaimers/1", None, None, "Third.", MINE, "Third."),
)


def meet(one, other, folder):
    """Two change the same at once: the second one is told what the first one wrote."""
    for path, label, first, second, way, then in MEETINGS:
        for person in (one, other):
            person.browser.get(SITE + path)
        if label is None:  # it is deleted
            one.click("Delete")
        else:
            one.write(label, first)
            one.send(label)
        one.click("Do it")
        label = label or "Text"
        other.write(label, second)
        other.send(label)
        same(path + ": is told", [text in other.text() for text in ("Somebody else was faster", *(first or "").split(), *second.split())],
             [True] * (1 + len((first or "").split()) + len(second.split())))
        picture(other.browser, folder if "Aliases" in label else "", "conflict")
        other.click(way)
        if way == MINE:
            other.click("Do it")
        if not other.fields(label):
            other.browser.get(SITE + path)
        same(path + ": then", sorted(other.fields(label)[0].get_attribute("value").split()), sorted(then.split()))


def mend(person):
    """What is refused stands beside the field, which keeps what was typed."""
    person.browser.get(SITE + "/domains/2/people/1003")
    person.write("Aliases, one in each line", "erik\nno alias")
    person.click("Save")
    field = person.fields("Aliases, one in each line")[0]
    why = person.browser.find_element(By.ID, field.get_attribute("aria-describedby"))
    same("why", [field.get_attribute("aria-invalid"), why.text], ["true", "no alias is no local part of an address"])
    person.write("Aliases, one in each line", "erik\nalias")
    person.click("Save")
    same("mended", "alias@" in person.text(), True)


def refresh(person, folder, buttons, end):
    """While it waits for another program the page says so, and tells the end by itself."""
    with open(os.environ["MDOMAIN_ROOT"] + "/var/run/postara_server/mdomain.lock", "a", encoding="ascii") as lock:
        person.click("Domains")
        person.click("Bring in new accounts")
        for button in buttons:
            fcntl.flock(lock, fcntl.LOCK_EX) if button is buttons[-1] else None
            person.click(button)
        person.wait("under way")
        picture(person.browser, folder, "refresh-live")
        time.sleep(1)
    person.wait("The last one ended")
    same("the outcome", end in person.text() or person.text(), True)


def directory():
    """Accounts of a directory on every page; of two, one comes and one goes by a refresh."""
    with start(with_scripts=True) as browser:
        erik = Person(browser).sign_in("erik")
        there = []
        for _ in range(2):
            browser.get(SITE + "/domains/1/people")
            there.append([name + DOMAIN in erik.text() for name in ("frieda", "gustav")])
            if len(there) == 1:
                refresh(erik, "", ("Show what it would change", "Do it"), "New people: 1")
        same("who is there before and after", there, [[False, True], [True, False]])
        look(browser, "", OF_HOST)
        erik.click("Sign out")
        Person(browser).sign_in("anna")
        look(browser, "", OF_ALL)


def type_on(browser):
    """With scripts a preview follows what is typed, the field stays as it is, and mail's HTML runs nothing."""
    browser.get(SITE + "/domains/2/disclaimers/1")
    field = browser.find_element(By.ID, "html")
    field.send_keys("<p id=sign>Bye</p><script>parent.document.title = 'ran'</script>")
    WebDriverWait(browser, 10).until(lambda _: browser.find_elements(By.TAG_NAME, "iframe"))
    same("still there", browser.switch_to.active_element.get_attribute("id"), "html")
    browser.switch_to.frame(browser.find_element(By.TAG_NAME, "iframe"))
    same("the HTML", WebDriverWait(browser, 10).until(lambda _: browser.find_elements(By.ID, "sign"))[0].text, "Bye")
    browser.switch_to.default_content()
    same("no script of it", browser.title == "ran", False)


# Text of each element against what stands behind it, as WCAG 2.2 counts it.
CONTRAST = """
const light = color => {
  const parts = color.match(/[\\d.]+/g).slice(0, 3).map(part => part / 255)
      .map(part => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4);
  return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2];
};
const behind = element => {
  for (let at = element; at; at = at.parentElement) {
    const color = getComputedStyle(at).backgroundColor;
    if (!/, 0\\)$/.test(color)) { return color; }
  }
  return 'rgb(255, 255, 255)';
};
return [...document.querySelectorAll('body *')].filter(one => one.offsetParent &&
    [...one.childNodes].some(node => node.nodeType === 3 && node.textContent.trim())).filter(one => {
  const both = [light(getComputedStyle(one).color), light(behind(one))].sort();
  return (Math.max(...both) + 0.05) / (Math.min(...both) + 0.05) < 4.5;
}).map(one => one.outerHTML.slice(0, 100));
"""

FOLDER = sys.argv[1]
with start(with_scripts=False) as plain:
    work(plain, FOLDER)
    if DOMAIN:
        directory()
        sys.exit(1 if failures else 0)
    plain.delete_all_cookies()
    ben = Person(plain).sign_in("ben")
    with start(with_scripts=True) as scripts:
        erik = Person(scripts).sign_in("erik")
        meet(erik, ben, FOLDER)
        mend(erik)
        refresh(erik, FOLDER, ("Show what it would change", "Do it"), "New people: 1")
        look(scripts, FOLDER, OF_HOST)
        erik.click("Sign out")
        Person(scripts).sign_in("anna")
        look(scripts, FOLDER, OF_ALL)
        type_on(scripts)
    refresh(ben, "", ("Begin at once",), "New people: 0")
with start(with_scripts=True, language="de") as german:
    for name, paths in (("ben", OF_HOST), ("anna", OF_ALL)):
        german.delete_all_cookies()
        Person(german).sign_in(name, ("Konto", "Passwort", "Anmelden"))
        look(german, FOLDER + "/de", paths)
sys.exit(1 if failures else 0)
