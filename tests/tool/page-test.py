#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: page-test.py FBR CHROMIUM [FOLDER]

Opens the pages of `fbr view` and `fbr diff --html` in a browser without a window, works on
them by keyboard and mouse, and looks at what they show. Leaves pictures of them in FOLDER.
"""
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import time

fbr, chromium = sys.argv[1:3]
folder = pathlib.Path(tempfile.mkdtemp(prefix="zrfs-page-"))
pictures = pathlib.Path(sys.argv[3]) if len(sys.argv) > 3 else folder

MARKUP = "<b>bold</b></script><script>document.title='broken'</script>"
FIRST = f'''Windows Registry Editor Version 5.00

[Software\\Hello]
@="the default"
"Count"=dword:0000002a
"Greeting"="{MARKUP}"
"Путь 日本 العربية"="日本語 и العربية"
"List"=hex(7):61,00,00,00,62,00,63,00,00,00,00,00
"Big"=hex(b):01,02,03,04,05,06,07,08
"Large"=hex:{",".join(["5a"] * 70000)}

[Software\\Hello\\<img src=x onerror=document.title='broken'>]
"<i>name</i>"=dword:00000001

[Software\\Hello\\Deep\\Deeper\\Deepest]
"needle"="in the hay"

[Many]
''' + "".join(f'"value {i:06}"="text of {i}"\n' for i in range(100_000))

# What stands before each script: the page's own ways in, and nothing else of it.
HELP = '''
const $ = id => document.getElementById(id);
const rows = id => [...$(id).querySelectorAll(".row")];
const shown = id => rows(id).map(row => row.textContent);
const click = (id, text, type = "mousedown") => {
  const row = rows(id).find(row => row.textContent.includes(text));
  if (!row) throw new Error(`no ${text} in ${id}: ${shown(id)}`);
  row.dispatchEvent(new MouseEvent(type, {bubbles: true}));
};
const press = (id, ...keys) => keys.forEach(key => $(id).dispatchEvent(new KeyboardEvent("keydown", {key, bubbles: true, cancelable: true})));
const search = async words => {
  $("search").value = words;
  $("search").dispatchEvent(new Event("input"));
  do await new Promise(done => setTimeout(done, 20)); while ($("count").textContent.includes("so far"));
};
'''
OPEN_HELLO = 'click("tree", "Software"); press("tree", "ArrowRight", "ArrowDown", "ArrowRight");'


def browse(page, script, picture=None):
    """What `script`, an async function's body, returns in the page."""
    text = page.read_text(encoding="utf-8")
    run = f'''<script>
      (async () => {{ {HELP} {script} }})().catch(error => "" + error)
        .then(result => document.body.append(Object.assign(document.createElement("output"), {{id: "result", hidden: true, textContent: JSON.stringify(result === undefined ? null : result)}})));
    </script></body>'''
    at = text.rindex("</body>")
    tried = folder / "tried.html"
    tried.write_text(text[:at] + run + text[at + len("</body>"):], encoding="utf-8")
    command = [chromium, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
               f"--user-data-dir={folder}/profile", "--virtual-time-budget=20000",
               "--window-size=1200,700"]
    dom = subprocess.run(command + ["--dump-dom", tried.as_uri()], capture_output=True, text=True,
                         timeout=120).stdout
    if picture:
        subprocess.run(command + [f"--screenshot={pictures / picture}", tried.as_uri()],
                       capture_output=True, timeout=120)
    assert "<title>broken</title>" not in dom, "markup of the store was run"
    found = re.search(r'<output id="result" hidden="">(.*?)</output>', dom, re.S)
    assert found, f"the page did not end its script: {dom[-500:]}"
    return json.loads(found[1].replace("&lt;", "<").replace("&gt;", ">").replace("&amp;", "&"))


def make(name, text):
    (folder / "in.reg").write_text(text, encoding="utf-8")
    subprocess.run([fbr, "import", folder / name, folder / "in.reg"], check=True)


def check(what, is_, wanted):
    if is_ != wanted:
        sys.exit(f"{what}: {is_!r}, not {wanted!r}")


make("first.fbr", FIRST)
page = folder / "first.html"
subprocess.run([fbr, "view", folder / "first.fbr", "-o", page], check=True)

check("keys that show at first", browse(page, 'return shown("tree").length'), 3)
check("values of a key", browse(page, OPEN_HELLO + 'return shown("values")', "view.png"), [
    "(Default)REG_SZ24the default", "BigREG_QWORD8578437695752307201 (0x0807060504030201)",
    "CountREG_DWORD442 (0x0000002a)", f"GreetingREG_SZ{2 * len(MARKUP) + 2}{MARKUP}",
    "LargeREG_BINARY70,000" + " ".join(["5a"] * 32), 'ListREG_MULTI_SZ12"a" "bc"',
    "Путь 日本 العربيةREG_SZ28日本語 и العربية"])
check("markup in data", browse(page, OPEN_HELLO + '''click("values", "Greeting");
    return [$("detail").querySelector("pre").textContent, document.querySelectorAll("b, i, img").length]'''),
      [MARKUP, 1])
check("markup in names", browse(page, OPEN_HELLO + '''click("tree", "<img"); return shown("values")'''),
      ["<i>name</i>REG_DWORD41 (0x00000001)"])
check("what is cut", browse(page, OPEN_HELLO + '''click("values", "Large");
    return $("detail").querySelector(".faint").textContent'''), "the first 65536 of them are in this page")
check("found, and left for the tree", browse(page, '''await search("needle"); const found = shown("tree");
    press("tree", "ArrowDown", "Enter"); return [found, shown("tree").length, $("where").querySelector("b").textContent]'''),
      [["\\Software\\Hello\\Deep\\Deeper\\Deepest  needle"], 8, "\\Software\\Hello\\Deep\\Deeper\\Deepest"])
began = time.monotonic()
check("a hundred thousand values", browse(page, '''click("tree", "Many"); const few = rows("values").length;
    press("values", "End"); const last = shown("values").pop(); await search("text of 99999");
    return [few < 60, rows("values").length < 60, last, shown("tree").length]''', "many.png"),
      [True, True, "value 099999REG_SZ28text of 99999", 1])
check("seconds for it", time.monotonic() - began < 60, True)
check("pages", browse(page, '''$("pages").click(); return [$("map").hidden, !!$("map").querySelector("svg rect title")]''',
                      "pages.png"), [False, True])
check("dark and light", browse(page, '''const was = document.documentElement.className; $("ground").click();
    return was !== document.documentElement.className''', "dark.png"), True)

small = FIRST.split("[Many]")[0]
make("fourth.fbr", small + f"[Gone\\{MARKUP.split('/')[0]}]\n[Many]\n")
make("second.fbr", small.replace("0000002a", "0000002b").replace('@="the', '@="a').replace('"List"', '"list 2"') +
     '[Software\\New]\n"x"=dword:1\n' + FIRST[FIRST.index("[Many]"):])
page = folder / "differences.html"
status = subprocess.run([fbr, "diff", folder / "fourth.fbr", "--to", folder / "second.fbr", "--format", "html",
                         "-o", page], check=False).returncode
check("status of a diff", status, 3)
check("both trees, unfolded to what differs", browse(page, 'return shown("tree").slice(1)'),
      ["\u25b8\u2212Gone", "~Many", "\u25be~Software", "\u25b8~Hello", "+New"])
hello = 'click("tree", "Hello"); click("tree", "Hello", "dblclick");'
check("values side by side", browse(page, hello + '''const all = shown("values"); click("values", "Count");
    return [all.filter(row => "\u2212+~".includes(row[0])), [...$("detail").querySelectorAll("pre")].map(pre => pre.textContent.slice(0, 15))]''', "diff.png"),
      [["~(Default)REG_SZ the defaultREG_SZ a default", "~CountREG_DWORD 42 (0x0000002a)REG_DWORD 43 (0x0000002b)",
       '\u2212ListREG_MULTI_SZ "a" "bc"', '+list 2REG_MULTI_SZ "a" "bc"'], ["42 (0x0000002a)", "000000  2a 00 0", "43 (0x0000002b)", "000000  2b 00 0"]])
check("only what differs", browse(page, 'press("tree", "d");' + hello + 'return [shown("tree").length, shown("values").length]'), [6, 4])
check("found in either", browse(page, 'await search("text of 99999"); return shown("tree")'), ["+\\Many  value 099999"])
check("pages of both", browse(page, '$("pages").click(); return $("map").querySelectorAll("svg").length', "maps.png"), 2)

# Names and data that turn the text around them, go deep, or differ where a page of the store would end.
def odd(byte, last, letter):
    deep = "\\".join(f"level {i}" for i in range(1, 61))
    return f'''Windows Registry Editor Version 5.00

[Soft\\\u202eevil\u2066 name]
"\u202etxt.exe"="\u202ereversed\u200b"
"bytes"=hex:00,01,02,03,04,05,06,07,08,09,{byte},0b
"large"=hex:{",".join(["5a"] * 70_000)},{last}
"odd"=hex(1):61,00,62,00,{letter}
"{"long" * 80}"="x"
"both"=hex(7):d0,05,00,00,61,00,00,00,00,00
"half"=hex(7):3d,d8,00,00,3d,d8,00,de,00,de,00,00,00,00
"half a text"=hex(1):3d,d8,3d,d8,00,de,00,00
"cut"="{"1" * 99}\U0001F600 and on"
[אבג\\דהו\\123]
"זח"="שלום abc"
[{deep}]
"end"=dword:1
'''


make("fifth.fbr", odd("0a", "01", "63"))
make("sixth.fbr", odd("ff", "03", "64"))
subprocess.run([fbr, "diff", folder / "fifth.fbr", "--to", folder / "sixth.fbr", "--html", "-o", page], check=False)
evil = 'click("tree", "evil");'
check("what turns text shows by its number", browse(page, evil + '''
    return [$("where").querySelector("b").textContent, shown("values").find(row => row.includes("txt"))]''', "turned.png"),
      ["\\Soft\\\\u202Eevil\\u2066 name", "\\u202Etxt.exe" + "REG_SZ \\u202Ereversed\\u200B" * 2])
check("half a character shows by its number", browse(page, evil + '''click("values", "half a text");
    const texts = shown("values").filter(row => /^(half|cut)/.test(row)).map(row => row.split("SZ ")[1].replace("REG_MULTI_", ""));
    return [...texts, $("detail").querySelector("pre").textContent]'''),
      ["1" * 99 + "REG_", '"\\uD83D" "\U0001F600\\uDE00"', "\\uD83D\U0001F600REG_", "\\uD83D\U0001F600"])
marks = 'return [...$("detail").querySelectorAll("mark")].map(mark => mark.textContent)'
check("each byte that differs is marked", browse(page, evil + 'click("values", "bytes");' + marks, "bytes.png"),
      ["0a", ".", "ff", "."])
check("also far behind", browse(page, evil + 'click("values", "large");' + marks), ["01", ".", "03", "."])
check("where that is told", browse(page, evil + 'return shown("values").find(row => row.includes("large")).split("REG")[0]'), "~large from byte 70000 on")
check("half a character makes bytes", browse(page, evil + 'return shown("values").find(row => row.includes("odd"))'),
      "~oddREG_SZ 61 00 62 00 63REG_SZ 61 00 62 00 64")
check("a long name has room", browse(page, evil + '''click("values", "longlong");
    const title = $("detail").querySelector("h2"); return title.scrollWidth <= title.clientWidth'''), True)
one = folder / "fifth.html"
subprocess.run([fbr, "view", folder / "fifth.fbr", "-o", one], check=True)
check("texts stand in their order", browse(one, '''click("tree", "Soft"); press("tree", "ArrowRight"); click("tree", "evil");
    const text = rows("values").find(row => row.textContent.includes("both")).lastChild.firstChild, place = document.createRange();
    const left = at => { place.setStart(text, at); place.setEnd(text, at + 1); return place.getBoundingClientRect().left; };
    return left(text.data.indexOf("\u05d0")) < left(text.data.indexOf("a"))''', "order.png"), True)
check("the deepest key is in sight", browse(page, '''click("tree", "level 1"); for (let i = 1; i < 60; ++i) press("tree", "ArrowRight", "ArrowRight");
    const name = $("tree").querySelector(".chosen bdi");
    return [name.textContent, name.getBoundingClientRect().right < $("tree").getBoundingClientRect().right]''', "deep.png"),
      ["level 60", True])
check("names from the right stand in their places", browse(page, '''click("tree", "אבג"); press("tree", "ArrowRight", "ArrowRight", "ArrowRight", "ArrowRight");
    const [first, second, third] = [...$("where").querySelectorAll("bdi")].map(name => name.getBoundingClientRect().left);
    return first < second && second < third''', "right.png"), True)
print("all pages are as they should be")
