#!/usr/bin/env python3
"""The page in a browser: page_test.py REVIEW UPGRADE EXAMPLES HOSTILE-TABLE"""
import base64, json, os, re, shutil, subprocess, sys, tempfile, time, urllib.error, urllib.request

review, upgrade, examples, hostile = (os.path.realpath(word) for word in sys.argv[1:5])
flags = ("--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
         "--disable-component-update --disable-sync --disable-dev-shm-usage").split()
failures = []


def check(holds, what):
    if not holds:
        failures.append(what)
        print("FAILED:", what)


class Browser:
    def __init__(self, profile):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        try:
            found = (re.search(r"successfully on port (\d+)", line) for line in self.driver.stdout)
            port = next((each.group(1) for each in found if each), None) or sys.exit("chromedriver opens no port")
            self.base = f"http://127.0.0.1:{port}/session"
            wanted = {"goog:loggingPrefs": {"browser": "ALL"},
                      "goog:chromeOptions": {"args": flags + ["--user-data-dir=" + profile]}}
            self.base += "/" + self.post("", capabilities={"alwaysMatch": wanted})["sessionId"]
        except BaseException:
            self.end()
            known = subprocess.run(["getent", "hosts", "localhost"], stdout=subprocess.DEVNULL).returncode == 0
            check(known, "no browser starts where localhost has no address: it is missing in /etc/hosts")
            raise

    def post(self, path, method="POST", **body):
        request = urllib.request.Request(self.base + path, json.dumps(body).encode(),
                                         {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            sys.exit("FAILED: the browser: " + json.load(error)["value"]["message"])

    def run(self, script, *words):
        return self.post("/execute/sync", script=script, args=list(words))

    def type(self, box, text, done):
        self.run("const box = document.getElementById(arguments[0]); box.value = arguments[1];"
                 "box.dispatchEvent(new Event('input'))", box, text)
        for _ in range(100):
            if self.run("return " + done, text):
                return
            time.sleep(0.05)
        check(False, f"no answer to {text} in {box}")

    def close(self):
        try:
            self.post("", method="DELETE")
        finally:
            self.end()

    def end(self):
        self.driver.terminate()
        self.driver.wait()


def decisions(browser, host):
    browser.type("host", host, "document.getElementById('answer').textContent.startsWith(arguments[0] + ' ')")
    rows = browser.run("return [...document.querySelectorAll('#decisions tbody tr')].map("
                       "(row) => [...row.children].map((cell) => cell.textContent))")
    made = {proxy: (before, after.replace("otherwise than before", "")) for proxy, before, *rest in rows for after in rest}
    for row in rows:
        if len(row) == 2:
            made.update({name: ("refused nothing covers it",) * 2 for name in row[1].split(": ", 1)[1].split(", ")})
    return made


def explained(conf, table, proxy, host):
    done = subprocess.run([review, "--json", "explain", conf, proxy, host, "--netperm", table], stdout=subprocess.PIPE)
    found = [each for each in json.loads(done.stdout)["findings"] if "after" in each and each["host"] == host][0]
    def words(side):
        by = f"map {side['map']}" if "map" in side else "the rule"
        return (f"{side['decision']} by {by} {side['pattern']} {side['file']}:{side['line']}" if "line" in side
                else "refused nothing covers it")
    return words(found["before"]), words(found["after"])


def open_page(browser, table, conf, proxies, hosts):
    words = ["-n", table, "-m", "old-3.2.conf", "-m", "init.conf", conf]
    subprocess.run([upgrade] + words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    check(subprocess.run([review, "--html", "page.html"] + words, stdout=subprocess.DEVNULL).returncode == 1, "status")
    browser.post("/url", url="file://" + os.path.realpath("page.html"))
    for host in hosts:
        shown = decisions(browser, host)
        for proxy in proxies:
            told = explained(conf, table, proxy, host)
            check(shown.get(proxy) == told, f"{proxy} {host}: the page has {shown.get(proxy)}, explain {told}")
    check(browser.run("return performance.getEntriesByType('resource').length") == 0, "a request to elsewhere")
    faults = browser.run("""
        const all = (what) => [...document.querySelectorAll(what)], level = (heading) => +heading.tagName[1];
        return [all('table').filter((table) => !table.caption), all('input').filter((input) => !input.labels.length),
                all('h1,h2,h3').filter((each, i, list) => i && level(each) > level(list[i - 1]) + 1),
                all('thead th').filter((cell) => !cell.scope), all('main').length === 1 ? [] : ['main']].map((a) => a.length)""")
    check(faults == [0, 0, 0, 0, 0], f"captions, labels, headings, scopes, main: {faults}")
    check((log := browser.post("/se/log", type="browser")) == [], f"console: {log}")


def test(browser):
    open_page(browser, "netperm-3.2.table", "new.conf", ["ssl-px", "tn-px", "ftp-px"],
              "10.11.0.0 10.1.7.13 10.1.7.1 10.1.99.5 10.1. 10.16.3.9 10.2.4.4 192.168.200.20 192.0.2.1 127.0.0.1 x 10.1.53.8".split())
    kinds = browser.run("return [...document.querySelectorAll('#differences tbody tr')].map((row) => row.innerText)")
    check(len(kinds) == 1 and "wider" in kinds[0] and "ssl-px" in kinds[0], f"differences: {kinds}")
    for text, one in (("ldap-px", False), ("", True), ("10.11.0.0", True)):
        browser.type("filter", text, "(document.getElementById('shown').textContent !== '') === (arguments[0] !== '')")
        seen = browser.run("return [...document.querySelectorAll('.f')].filter((row) => !row.hidden).map((row) => row.textContent)")
        check(seen and all(text in row for row in seen), f"the filter {text} shows more")
        check(any("refused before" in row or "\u25b2" in row for row in seen) == one, f"the difference with filter {text}")
    browser.post("/goog/cdp/execute", cmd="Emulation.setDeviceMetricsOverride",
                 params={"width": 400, "height": 800, "deviceScaleFactor": 1, "mobile": False})
    check(browser.run("return document.documentElement.scrollWidth") <= 400, "wider than 400 pixels")
    told = browser.run("const link = document.querySelector('.verdict a[href=\"#h-checks\"]'); return link && link.textContent")
    check("1 name that stands twice" in (told or ""), f"the verdict leaves out a doubt: {told}")
    paper = base64.b64decode(browser.post("/print"))
    check(paper.startswith(b"%PDF-") and b"%%EOF" in paper[-16:], "no document on printing")

    for words, unseen, head in ((["-n", "nosuch", "-m", "old-3.2.conf", "-m", "init.conf", "out"], 3, "Upgrade review out"),
                                (["explain", "old-4.1.conf", "ftp-px", "10.1.7.13"], 2, "Explain old-4.1.conf ftp-px 10.1.7.13")):
        subprocess.run([review, "--html", "part.html"] + words, stdout=subprocess.DEVNULL)
        browser.post("/url", url="file://" + os.path.realpath("part.html"))
        text = " ".join(browser.run("return document.body.innerText").split())
        check(text.count("Not looked at.") == unseen and head in text, f"the page of {words} tells of what was not looked at")

    shutil.copy(hostile, "hostile.table")
    names = ["</script><script>window.pwned", '"><img/src', "u-px"]
    open_page(browser, "hostile.table", "'\"><img src=x>.conf", names, ["axb", "ab", "a", "abc", "bc", "éxy", "ö.1", "<b>"])
    check(browser.run("return window.pwned === undefined && document.images.length === 0 && "
                      "document.scripts.length === 2 && !document.querySelector('svg, main style')"), "markup of a file ran")
    check(browser.run("return document.body.textContent.includes('\\\\xE9\\\\xFF*') && "
                      "document.body.textContent.includes('\\\\u{202E}')"), "bytes that are no text are not shown as escapes")


with tempfile.TemporaryDirectory() as scratch:
    shutil.copytree(examples, scratch, dirs_exist_ok=True)
    os.chdir(scratch)
    session = Browser(os.path.join(scratch, "profile"))
    try:
        test(session)
    finally:
        session.close()
sys.exit(1 if failures else 0)
