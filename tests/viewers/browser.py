"""Opens an address in Chromium by WebDriver, and answers requests on standard input, a line each:

  ready        waits until the page has a viewer that is connected; prints where its picture is
  address      prints the address that the browser shows
  open URL     opens another address, and prints the text of the page
  shot FILE    writes the left upper part of the viewer's picture, 900x400 pixels of red, green,
               blue and 255
  save FILE    writes a PNG of what the browser shows
  quit
"""

import base64
import sys
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

PLACE = """
const picture = document.querySelector("canvas").getBoundingClientRect();
const left = window.screenX + window.outerWidth - window.innerWidth;
const top_ = window.screenY + window.outerHeight - window.innerHeight;
return [left + picture.left, top_ + picture.top, picture.width, picture.height].join(" ");
"""
SHOT = """
const canvas = document.querySelector("canvas");
const bytes = canvas.getContext("2d").getImageData(0, 0, 900, 400).data;
let text = "";
for (let i = 0; i < bytes.length; i += 4096)
    text += String.fromCharCode(...bytes.subarray(i, i + 4096));
return btoa(text);
"""

options = webdriver.ChromeOptions()
options.binary_location = "/usr/bin/chromium"
for argument in ("--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-dev-shm-usage", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync", "--password-store=basic",
                 "--window-position=0,0", "--window-size=1980,1290",
                 "--user-data-dir=" + tempfile.mkdtemp()):
    options.add_argument(argument)
browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
browser.get(sys.argv[1])
try:
    for line in sys.stdin:
        request, _, rest = line.strip().partition(" ")
        answer = "done"
        if request == "ready":
            state = browser.find_element(By.ID, "state")
            WebDriverWait(browser, 30).until(lambda _: state.text.startswith("Connected"))
            answer = browser.execute_script(PLACE)
        elif request == "address":
            answer = browser.current_url
        elif request == "open":
            browser.get(rest)
            answer = browser.find_element(By.TAG_NAME, "body").text.replace("\n", " ")
        elif request == "shot":
            with open(rest, "wb") as file:
                file.write(base64.b64decode(browser.execute_script(SHOT)))
        elif request == "save":
            browser.save_screenshot(rest)
        elif request == "quit":
            break
        print(answer, flush=True)
finally:
    browser.quit()
