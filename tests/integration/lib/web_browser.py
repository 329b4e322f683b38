"""Works with mdomain-web on port 8025 as anna, who administers bücher.example, does:
web_browser.py FOLDER, where pictures of the pages go. Accounts of a directory: web_browser.py "" @DOMAIN, which
takes no pictures."""

import sys

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

SITE = "http://127.0.0.1:8025"
DOMAIN = sys.argv[2] if len(sys.argv) > 2 else ""
failures = 0


def same(name, got, want):
    global failures
    if got != want:
        failures += 1
        print(f"FAILED: {name}: got {got!r}, want {want!r}")


def start(with_scripts):
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    if not with_scripts:
        options.add_experimental_option("prefs", {"profile.managed_default_content_settings.javascript": 2})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class Person:
    def __init__(self, browser):
        self.browser = browser

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

    def write(self, label, text):
        """Into the field of a label."""
        for one in self.browser.find_elements(By.TAG_NAME, "label"):
            if one.text.strip() == label:
                field = self.browser.find_element(By.ID, one.get_attribute("for"))
                field.clear()
                field.send_keys(text)
                return
        same(f"on {self.browser.current_url}: a field {label!r}", False, True)


def is_gone(element):
    try:
        element.is_enabled()
        return False
    except Exception:  # pylint: disable=broad-except
        return True


def picture(browser, folder, name):
    for width in (1280, 380) if folder else ():
        browser.set_window_size(width, 1000)
        browser.save_screenshot(f"{folder}/{name}-{width}.png")


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

    anna.click("bücher.example")
    anna.click("People")
    same("the collision", "goes to erik" in anna.text(), True)
    picture(browser, folder, "collision")
    anna.click("erika" + DOMAIN)
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
    same("the preview", ["people gets it anna" in anna.text(), "No offer is final." in anna.text()], [True, True])
    anna.click("Save")
    anna.click("Do it")
    same("the disclaimer", "No offer is final." in anna.text(), True)

    anna.click("Shared addresses")
    anna.write("Local part", "team")
    anna.write("Accounts, one in each line", f"erik{DOMAIN}\nerika{DOMAIN}")
    anna.click("Create")
    anna.click("Leave it as it is")
    same("not created", "team" in anna.text(), False)
    anna.write("Local part", "team")
    anna.write("Accounts, one in each line", f"erik{DOMAIN}\nerika{DOMAIN}")
    anna.click("Create")
    anna.click("Do it")
    same("created", "team" in anna.text() or anna.text(), True)
    anna.click("History")
    anna.click("Take back")
    anna.click("Do it")
    browser.get(SITE + "/domains/2/entries")
    same("taken back", "team" in anna.text(), False)


def look(browser, folder):
    """Every page: names for what can be used, one heading, nothing beside the window."""
    for path in ("/", "/own", "/explain?address=erik@bücher.example", "/doctor", "/history", "/tokens", "/domains/2",
                 "/domains/2/people", "/domains/2/people/1003", "/domains/2/people/add", "/domains/2/pattern",
                 "/domains/2/groups", "/domains/2/groups/2001", "/domains/2/entries", "/domains/2/copies",
                 "/domains/2/disclaimers", "/domains/2/disclaimers/1", "/domains/2/picture"):
        for width in (1280, 380):
            browser.set_window_size(width, 1000)
            browser.get(SITE + path)
            browser.save_screenshot(f"{folder}/{path.split('?')[0].strip('/').replace('/', '-') or 'start'}-{width}.png")
            case = f"{path} at {width}"
            same(case + ": headings", len(browser.find_elements(By.TAG_NAME, "h1")), 1)
            same(case + ": beside the window", browser.execute_script(
                "return document.documentElement.scrollWidth > document.documentElement.clientWidth"), False)
            same(case + ": without a name", browser.execute_script("""
                return [...document.querySelectorAll('a, button, input:not([type=hidden]), select, textarea')]
                    .filter(one => !one.textContent.trim() && !one.labels?.length).map(one => one.outerHTML)"""), [])
            same(case + ": contrast", browser.execute_script(CONTRAST), [])


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
    browser.save_screenshot(f"{sys.argv[1]}/disclaimer-preview.png")


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

plain = start(with_scripts=False)
try:
    work(plain, sys.argv[1])
finally:
    plain.quit()
if DOMAIN:
    sys.exit(1 if failures else 0)
browser = start(with_scripts=True)
try:
    anna = Person(browser)
    browser.get(SITE)
    anna.write("Account", "anna")
    anna.write("Password", "of anna")
    anna.click("Sign in")
    look(browser, sys.argv[1])
    type_on(browser)
finally:
    browser.quit()
sys.exit(1 if failures else 0)
