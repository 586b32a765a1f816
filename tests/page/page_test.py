#!/usr/bin/python3
"""The page in a browser: page_test.py REVIEW UPGRADE EXAMPLES HOSTILE-TABLE"""
import base64, json, os, shutil, subprocess, sys, tempfile, time
from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

review, upgrade, examples, hostile = (os.path.realpath(word) for word in sys.argv[1:5])
flags = ("--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
         "--disable-component-update --disable-sync --disable-dev-shm-usage").split()
failures = []


def check(holds, what):
    if not holds:
        failures.append(what)
        print("FAILED:", what)


def start_browser(profile):
    options = webdriver.ChromeOptions()
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    for flag in flags + ["--user-data-dir=" + profile]:
        options.add_argument(flag)
    try:
        return webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))
    except WebDriverException as error:
        sys.exit(f"the browser can't start, is localhost in /etc/hosts? {error.msg}")


def side_of(run, proxy, number):
    return run("const proxy = [...document.querySelectorAll('.proxy')].find((each) => each.querySelector('b')"
               ".textContent === arguments[0]); return proxy.querySelectorAll('.sides > div')[arguments[1]]"
               ".textContent", proxy, number)


def explained(conf, table, proxy, host):
    done = subprocess.run([review, "--json", "explain", conf, proxy, host, "--netperm", table], stdout=subprocess.PIPE)
    found = [each for each in json.loads(done.stdout)["findings"] if "after" in each and each["host"] == host][0]
    return [f"by {side['pattern']} ({side['file']}:{side['line']}" if "line" in side else ""
            for side in (found["before"], found["after"])]


def open_page(browser, table, conf, proxies, hosts):
    run = browser.execute_script
    words = ["-n", table, "-m", "old-3.2.conf", "-m", "init.conf", conf]
    subprocess.run([upgrade] + words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    done = subprocess.run([review, "--html", "page.html"] + words, stdout=subprocess.DEVNULL)
    check(done.returncode == 1, "status")
    browser.get("file://" + os.path.realpath("page.html"))
    for host, proxy in ((host, proxy) for host in hosts for proxy in proxies):
        for number, told in enumerate(explained(conf, table, proxy, host)):
            shown = side_of(run, proxy, number)
            check(told in shown, f"{proxy} {host}: explain has {told}, the page {shown}")
    check(run("return performance.getEntriesByType('resource').length") == 0, "a request to elsewhere")
    faults = run("""
        const all = (what) => [...document.querySelectorAll(what)], level = (heading) => +heading.tagName[1];
        return [all('table').filter((table) => !table.caption), all('input').filter((input) => !input.labels.length),
                all('h1,h2,h3').filter((each, i, list) => i && level(each) > level(list[i - 1]) + 1),
                all('thead th').filter((cell) => !cell.scope),
                all('main').length === 1 ? [] : ['main']].map((a) => a.length)""")
    check(faults == [0, 0, 0, 0, 0], f"captions, labels, headings, scopes, main: {faults}")
    check((log := browser.get_log("browser")) == [], f"console: {log}")


def emulate(browser, command, **params):
    browser.execute_cdp_cmd("Emulation." + command, params)


def test(browser):
    run = browser.execute_script
    hosts = "10.11.0.0 10.1.7.13 10.1.7.1 10.1.99.5 10.1. 10.16.3.9 10.2.4.4 192.168.200.20 192.0.2.1 127.0.0.1 x"
    open_page(browser, "netperm-3.2.table", "new.conf", ["ssl-px", "tn-px", "ftp-px"], hosts.split())
    rows = run("return [...document.querySelectorAll('#access ~ table tbody tr')].map((row) => row.innerText)")
    check("wider" in rows[0] and "ssl-px" in rows[0] and "netconfig" in "".join(rows[1:]), f"differences: {rows}")
    lines = run("return [...document.querySelectorAll('#lines ~ details li')].map((row) => "
                        "[...row.children].map((each) => each.textContent))")
    files = {name: open(name).read().split("\n") for name in {place.rsplit(":", 1)[0] for place, _ in lines}}
    others = [place for place, text in lines if files[place.rsplit(":")[0]][int(place.rsplit(":")[1]) - 1] != text]
    check(len(files) == 4 and not others, f"lines with another text than in their files: {others[:5]}")
    back = run("return [...document.querySelectorAll('#lines ~ details li')].map((row) => row.textContent)")
    check(any("_realname=nntp-ext init.conf:103" in row for row in back), "a line of the result without its origin")
    for text, one in (("ldap-px", False), ("", True), ("10.11.0.0", True)):
        browser.find_element("id", "filter").send_keys(Keys.CONTROL, "a", Keys.NULL, Keys.BACKSPACE, text)
        WebDriverWait(browser, 5).until(lambda each: (each.find_element("id", "shown").text != "") == (text != ""))
        seen = run("return [...document.querySelectorAll('.f')].filter((row) => !row.hidden)"
                           ".map((row) => row.textContent)")
        check(seen and all(text in row for row in seen), f"the filter {text} shows more")
        check(any("refused before" in row for row in seen) == one, f"the difference with filter {text}")
    emulate(browser, "setDeviceMetricsOverride", width=400, height=800, deviceScaleFactor=1, mobile=False)
    check(run("return document.documentElement.scrollWidth") <= 400, "wider than 400 pixels")
    head = run("return document.querySelector('header').innerText")
    for told in ("4 names that stand twice", "To decide", "Firewall gw.", "moatwall-review 5.", time.strftime("%Y-")):
        check(told in head, f"the head leaves out {told}: {head}")
    emulate(browser, "setEmulatedMedia", media="print")
    kept = run("return getComputedStyle(document.querySelector('.proxy')).breakInside")
    check(kept == "avoid", f"a proxy's sides on paper: {kept}")
    emulate(browser, "setEmulatedMedia", media="")
    paper = base64.b64decode(browser.print_page())
    check(paper.startswith(b"%PDF-") and b"%%EOF" in paper[-16:], "no document on printing")

    for words, unseen, told in (("-n nosuch -m old-3.2.conf -m init.conf out", 3, "Upgrade review out"),
                                ("explain old-4.1.conf ftp-px 10.1.7.13", 2, "Explain old-4.1.conf ftp-px 10.1.7.13")):
        subprocess.run([review, "--html", "part.html"] + words.split(), stdout=subprocess.DEVNULL)
        browser.get("file://" + os.path.realpath("part.html"))
        text = " ".join(run("return document.body.innerText").split())
        check(text.count("Not looked at.") == unseen and told in text, f"what was not looked at: the page of {words}")

    shutil.copy(hostile, "hostile.table")
    names = ["</script><script>window.pwned", '"><img/src', "u-px"]
    hosts = ["axb", "ab", "a", "abc", "bc", "éxy", "ö.1", "<b>"]
    open_page(browser, "hostile.table", "'\"><img src=x>.conf", names, hosts)
    check(run("return window.pwned === undefined && document.images.length === 0 && "
                      "document.scripts.length === 1 && !document.querySelector('svg, main style')"), "markup ran")
    check(run("return document.body.textContent.includes('\\\\xE9\\\\xFF*') && "
                      "document.body.textContent.includes('\\\\u{202E}')"), "bytes that are no text are not escaped")


with tempfile.TemporaryDirectory() as scratch:
    shutil.copytree(examples, scratch, dirs_exist_ok=True)
    os.chdir(scratch)
    session = start_browser(os.path.join(scratch, "profile"))
    try:
        test(session)
    finally:
        session.quit()
sys.exit(1 if failures else 0)
