"""Drives the status window page in Debian's Chromium (through chromedriver and Selenium) against a
running service over a fresh installation tree: counters and lists after a pass, ticking "Accept
External Query" and the next external status query, a post from another site that must not
change the box, the double-click dialog of the domain list, and the held-mail view: counts and
list, a release through its button, and a release forged by another site that must fail.

Usage: python3 window_test.py SERVICE_COMMAND...  (the program and its arguments: `quellor -debug`)
The screenshot goes to $QUELLOR_SCREENSHOT (default: none).

An external peer is simulated with a connection from 127.0.0.2: it is on this machine, but it does
not read exactly "127.0.0.1", so the service treats it as any other host. Every wait has a
deadline far longer than a busy machine needs; nothing is timed.
"""

import http.server
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import traceback
import urllib.error
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service as DriverService
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

DEADLINE = 30  # seconds, for every wait

passed = 0
failed = 0


def check(what, ok, detail=""):
    global passed, failed
    if ok:
        passed += 1
        print(f"ok - {what}")
    else:
        failed += 1
        print(f"not ok - {what}" + (f": {detail}" if detail else ""))


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_until(done, what):
    end = time.monotonic() + DEADLINE
    while True:
        try:
            result = done()
            if result:
                return result
        except Exception:
            pass
        if time.monotonic() > end:
            raise TimeoutError(what)
        time.sleep(0.05)


def status_query(port, local_address):
    """One status query from `local_address`: every byte received until the close. Nothing
    listens while another reply is in flight, so a refused connection is retried."""

    def attempt():
        with socket.socket() as s:
            s.settimeout(DEADLINE)
            s.bind((local_address, 0))
            s.connect(("127.0.0.1", port))
            chunks = []
            while chunk := s.recv(4096):
                chunks.append(chunk)
            return b"".join(chunks).decode("latin-1")

    result = []
    wait_until(lambda: result.append(attempt()) or True, "status query")
    return result[0]


def make_tree(root):
    for d in ["IN", "LOCAL", "OUT", "WAIT", "DEBUG", "Users", "SYSTEM", "LOG", "LOG/quellor",
              "WAIT/carol@example.org"]:
        os.makedirs(os.path.join(root, d), exist_ok=True)

    def write(name, lines):
        with open(os.path.join(root, name), "wb") as f:
            f.write("".join(line + "\r\n" for line in lines).encode())

    write("quellor.ini", ["DEBUG=ON", "POSTMASTERS=postmaster@example.org"])
    write("DOMAIN.LST", ["example.org"])
    # Mail for a user without configuration is forwarded and counted under its domain; the Start
    # command passes it at start-up. The envelope is written first and the message last, as the
    # host server does.
    write("IN/M0001.WAI", ["alice@remote.example", "bob@example.org"])
    write("IN/M0001.EML", ["From: alice@remote.example", "To: bob@example.org",
                           "Subject: <b>Hello</b>", "", "Hi"])
    # Two messages held for carol, the newer one last written.
    for n, (stem, subject) in enumerate([("M0101", "First"), ("M0102", "<i>Second</i>")]):
        write(f"WAIT/carol@example.org/{stem}.WAI",
              ["stranger@remote.example", "carol@example.org", subject])
        write(f"WAIT/carol@example.org/{stem}.EML",
              ["From: stranger@remote.example", f"Subject: {subject}", "", "Hello"])
        for ext in (".WAI", ".EML"):
            os.utime(os.path.join(root, f"WAIT/carol@example.org/{stem}{ext}"), (1e9 + n, 1e9 + n))


def other_site(window_port, path="/check1", body="0"):
    """A page of another site that posts `body` to one of the page's addresses, as a hostile page
    could; its title tells when the request has been answered."""
    page = f"""<!doctype html><title>waiting</title><script>
fetch("http://127.0.0.1:{window_port}{path}", {{method: "POST", mode: "no-cors", body: {json.dumps(body)}}})
  .then(() => document.title = "sent", () => document.title = "failed");
</script>""".encode()

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.send_header("Content-Length", str(len(page)))
            self.end_headers()
            self.wfile.write(page)

        def log_message(self, *args):
            pass

    server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


def page_errors(driver):
    """Script errors, refused resources and other errors the console showed since the last call."""
    return [e["message"] for e in driver.get_log("browser") if e["level"] == "SEVERE"]


def run(driver, base, status_port, root):
    def text(selector):
        return driver.find_element(By.CSS_SELECTOR, selector).get_attribute("textContent")

    def texts(selector):
        return [e.get_attribute("textContent") for e in driver.find_elements(By.CSS_SELECTOR, selector)]

    def waits(condition):
        return WebDriverWait(driver, DEADLINE, poll_frequency=0.05).until(condition)

    driver.get(base + "/")
    # The pass forwards the message; the page refreshes itself until it shows it.
    waits(lambda d: text("#Forward") == "1")
    title = driver.title
    check("title carries the start-up time",
          re.search(r" - Running since \d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d$", title), title)
    check("Forward total", text("#Forward") == "1")
    check("Forward today", text("#todayforward") == "1")
    check("queue counted down", text("#total") == "0")
    headers = texts("#counters th")
    for label in ["Forward:", "Learn:", "Quellor:", "Validations:", "Purged:", "Invalid Val:",
                  "In Queue:", "Header:"]:
        check(f"label {label}", sum(label.lower() in h.lower() for h in headers) == 1, headers)
    legends = [t.strip() for t in texts("legend")]
    for caption in ["Start Up Time", "Config", "Incoming Mails", "Local Mails", "Validations",
                    "Warnings", "Purged Emails", "Local postmasters", "In Queue"]:
        check(f"frame {caption}", legends.count(caption) == 1, legends)
    check("postmasters list", texts("#List1 option") == ["postmaster@example.org"])
    domains = texts("#domainlist option")
    check("incoming domain counted", domains == ["example.org:1"], domains)
    check("Start button disabled", not driver.find_element(By.ID, "Command1").is_enabled())
    box = driver.find_element(By.ID, "Check1")
    check("check box unticked", not box.is_selected())

    # An external query is refused until the box is ticked.
    refused = status_query(status_port, "127.0.0.2")
    check("external query refused with CR LF alone", refused == "\r\n", repr(refused))
    # The page's own post passes the service's guard against other sites.
    driver.execute_script("""
      window.quellorPosts = [];
      const original = window.fetch;
      window.fetch = async (url, options) => {
        const r = await original(url, options);
        if (String(url).endsWith("/check1") && options && options.method === "POST")
          window.quellorPosts.push(r.status);
        return r;
      };""")
    box.click()
    posts = waits(lambda d: d.execute_script("return window.quellorPosts"))
    check("tick accepted by the service", posts == [200], posts)
    answered = status_query(status_port, "127.0.0.2")
    lines = answered.split("\r\n")
    check("external query answered after ticking",
          answered.endswith("\r\n") and len(lines) == 13
          and lines[0] == "START UP TIME=" + title.split(" - Running since ")[1]
          and lines[1] == "FORWARD=1" and lines[11] == "DOMAIN=example.org:1",
          repr(answered))

    # A page of another site cannot untick the box: it cannot know the page's token, and the
    # service refuses posts from another origin.
    errors = page_errors(driver)
    window = driver.current_window_handle
    server = other_site(base.rsplit(":", 1)[1])
    try:
        driver.switch_to.new_window("tab")
        driver.get(f"http://127.0.0.1:{server.server_port}/")
        waits(lambda d: d.title != "waiting")
        check("cross-site post answered", driver.title == "sent", driver.title)
        driver.close()
        driver.switch_to.window(window)
    finally:
        server.shutdown()
    page_errors(driver)  # the refused post shows as an error of the other site's page
    check("cross-site post refused",
          status_query(status_port, "127.0.0.2").startswith("START UP TIME="))

    # Survives a refresh: the box shows the service's state.
    driver.refresh()
    check("ticked box kept after reload", driver.find_element(By.ID, "Check1").is_selected())

    if os.environ.get("QUELLOR_SCREENSHOT"):
        driver.save_screenshot(os.environ["QUELLOR_SCREENSHOT"])

    # A double-click on a line of the domain list shows it in a dialog.
    dialog = driver.find_element(By.ID, "msgbox")
    ActionChains(driver).double_click(driver.find_element(By.CSS_SELECTOR, "#domainlist option")).perform()
    waits(lambda d: dialog.is_displayed())
    check("dialog shows the double-clicked line", text("#msgtext") == "example.org:1")
    driver.find_element(By.ID, "msgok").click()
    check("dialog closes with OK", not dialog.is_displayed())
    # The postmasters list has no double-click action.
    ActionChains(driver).double_click(driver.find_element(By.CSS_SELECTOR, "#List1 option")).perform()
    check("no dialog for the postmasters list", not dialog.is_displayed())
    errors += page_errors(driver)

    # The held-mail view: counts per user and the list, newest first.
    # Counted in the page: the view replaces its rows while they are looked at.
    def held_rows():
        return driver.execute_script("return document.querySelectorAll('#heldlist tr').length")

    waits(lambda d: held_rows() == 2)
    check("held counts", texts("#heldcounts td") == ["carol@example.org", "2"]
          and text("#heldtotal") == "2", texts("#heldcounts td"))
    rows = [[td.get_attribute("textContent") for td in tr.find_elements(By.CSS_SELECTOR, "td")][1:5]
            for tr in driver.find_elements(By.CSS_SELECTOR, "#heldlist tr")]
    check("held list newest first",
          rows == [["carol@example.org", "stranger@remote.example", "<i>Second</i>", "64"],
                   ["carol@example.org", "stranger@remote.example", "First", "56"]], rows)

    # A release forged by another site fails: in the browser (no token, foreign origin), and
    # even with the token when the origin is foreign.
    held = os.path.join(root, "WAIT/carol@example.org/M0101.WAI")
    server = other_site(base.rsplit(":", 1)[1], "/release", "carol@example.org\nM0101")
    try:
        driver.switch_to.new_window("tab")
        driver.get(f"http://127.0.0.1:{server.server_port}/")
        waits(lambda d: d.title != "waiting")
        driver.close()
        driver.switch_to.window(window)
        forged = urllib.request.Request(
            base + "/release", data=b"carol@example.org\nM0101", method="POST",
            headers={"X-Quellor-Token": driver.execute_script("return TOKEN"),
                     "Origin": f"http://127.0.0.1:{server.server_port}"})
        try:
            status = urllib.request.urlopen(forged, timeout=DEADLINE).status
        except urllib.error.HTTPError as e:
            status = e.code
        check("release with a foreign origin refused", status == 403, status)
    finally:
        server.shutdown()
    page_errors(driver)
    check("forged releases left the mail held", os.path.exists(held))

    # The page's own release button: the held message goes to LOCAL/ and is counted.
    local_before = len(os.listdir(os.path.join(root, "LOCAL")))
    driver.find_element(By.CSS_SELECTOR, '#heldlist tr[data-id="M0101"] button.release').click()
    waits(lambda d: not os.path.exists(held) and held_rows() == 0)
    check("release answered", text("#heldmsg").startswith(
        "released 2 message(s) from <stranger@remote.example> to <carol@example.org>"),
        text("#heldmsg"))
    check("released into LOCAL/", len(os.listdir(os.path.join(root, "LOCAL"))) == local_before + 4)
    waits(lambda d: text("#Validations") == "2")
    check("release counted", text("#todayvalidations") == "2")
    errors += page_errors(driver)
    check("no script errors", not errors, "; ".join(errors))


def main():
    command = sys.argv[1:]
    if not command:
        print("usage: python3 window_test.py SERVICE_COMMAND...", file=sys.stderr)
        return 2
    work = tempfile.mkdtemp(prefix="quellor-browser-")
    root = os.path.join(work, "root") + "/"
    make_tree(root)
    status_port, window_port = free_port(), free_port()
    env = dict(os.environ, QUELLOR_ROOT=root, QUELLOR_STATUS_PORT=str(status_port),
               QUELLOR_WINDOW_PORT=str(window_port))
    service = subprocess.Popen(command, env=env, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL)
    driver = None
    try:
        base = f"http://127.0.0.1:{window_port}"
        # The page is there once the service has started.
        wait_until(lambda: service.poll() is None and urllib.request.urlopen(base + "/", timeout=DEADLINE).status == 200,
                   "the window page did not come up")

        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for arg in ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                    "--no-first-run", "--disable-background-networking",
                    "--disable-component-update", "--disable-sync",
                    "--user-data-dir=" + os.path.join(work, "profile")]:
            options.add_argument(arg)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        driver = webdriver.Chrome(service=DriverService("/usr/bin/chromedriver"), options=options)
        # The page itself 1100 by 640, whatever room the headless window keeps for itself.
        driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                               {"width": 1100, "height": 640, "deviceScaleFactor": 1, "mobile": False})
        run(driver, base, status_port, root)
    except Exception:
        check("browser test ran to its end", False, traceback.format_exc())
    finally:
        if driver:
            driver.quit()
        service.terminate()
        service.wait()
        shutil.rmtree(work, ignore_errors=True)
    print(f"browser: {passed} passed, {failed} failed")
    return 0 if failed == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
