#!/usr/bin/env python3
"""Reads what 'tlx rehearse' and 'tlx changes' print for programs, and opens their pages in a browser.

    pages.py --linux TESSEL --tlx TLX --key PEM --json OUT [--filter GLOB] [-v] [--rules AXE.js]

Rows of pages are skipped where there is no Chromium that starts, and those of accessibility also
without --rules.
"""

import html
import json
import os
import pathlib
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

import jsonschema

import surroundings
import world
from world import expect

ROOT = pathlib.Path(__file__).resolve().parents[2]
SAMPLES = ROOT / 'docs' / 'samples'
HEADER = ('<patch version="1.0"><header><property name="id" value="{0}"/>'
          '<property name="patchType" value="external"/><property name="created" value="1704067200"/>'
          '<property name="expires" value="24855"/></header><script>\n')
# What would be markup, an address or an unseen turn of the direction, if a page let it.
EVIL = '"\'></script><img src=x onerror=alert(1)>]]>--><!--&lt;\u2028\u202e\ufeff\u0085\U000e0041'
SEEN = EVIL.translate({ord(c): f'\\u{ord(c):04X}' for c in '\u2028\u202e\ufeff\u0085\U000e0041'})
EVIL_SCRIPT = HEADER + """<!-- {0} -->
<trace std="out" value="{0}"/>
<trace id="{0}" value="&#xD800; javascript:alert(1)"/>
<processRun path="Z:\\bin\\true" args="{0}"><onerrorspec err="{0}"><nothing/></onerrorspec></processRun>
<fileCreate path="%ProgramData%\\a&#x202E;txt.exe"/>
<iniSetValue path="%ProgramData%\\x.ini" section="s" key="k" value="{0}"/>
<regCreateKey root="HKEY_LOCAL_MACHINE" key="SOFTWARE\\{0}"/>
<regWrite root="HKEY_LOCAL_MACHINE" key="SOFTWARE\\{0}" value="{0}" type="REG_SZ" data="{0}"/>
<exit code="0"/></script></patch>"""
ROAD_SCRIPT = HEADER + """<onErrorGoTo target="failed"/>
<for var="v" value="a;b" delim=";"><trace value="%v%"/><nothing/></for>
<fileExists path="C:\\nothing"><onTrue><exit code="1"/></onTrue></fileExists>
<fileMove src="C:\\nothing" dest="C:\\x"/>
<exit code="2"/>
<exit id="failed" code="3"/></script></patch>"""
ROAD = {'start -> c0', 'c0 -> c1', 'c1 -> c2', 'c2 -> c3', 'c3 -> c1', 'c1 -> c4', 'c4 -> c6',
        'c6 -> c8'}
LONG_SCRIPT = HEADER + """<for var="v" value="{1}" delim=";"><trace value="%v%"/></for>
<trace value="{2}"/>
""" + '<nothing/>\n' * 11_000 + '<exit code="0"/></script></patch>'
ELEMENTS = set('a body br caption code dd del details div dl dt footer h1 h2 h3 head header html input '
               'ins label li main meta nav p pre script section span style summary table tbody td '
               'th thead title tr ul svg defs marker path g rect text tspan'.split())
LARGEST_PAGE = 16_000_000
LONGEST_WAIT = 60  # seconds


class Browser:
    """A headless Chromium, by the DevTools protocol; `folder` holds its profile."""

    def __init__(self, program, folder):
        to_browser, self.commands = os.pipe()
        self.answers, from_browser = os.pipe()
        # The protocol's pipes are descriptors 3 and 4. As root it can't have its sandbox.
        self.process = subprocess.Popen(
            ['sh', '-c', f'exec "$@" 3<&{to_browser} 4>&{from_browser}', 'sh', program, '--headless',
             '--remote-debugging-pipe', '--disable-gpu', '--disable-dev-shm-usage', '--no-first-run',
             '--disable-background-networking', f'--user-data-dir={folder}',
             *(['--no-sandbox'] if os.geteuid() == 0 else [])],
            pass_fds=(to_browser, from_browser), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env={'PATH': os.environ['PATH'], 'HOME': str(folder), 'TMPDIR': str(folder)})
        os.close(to_browser)
        os.close(from_browser)
        self.last, self.unread, self.events, self.session = 0, b'', [], {}

    def attach(self):
        target = self.call('Target.createTarget', url='about:blank')['targetId']
        session = self.call('Target.attachToTarget', targetId=target, flatten=True)['sessionId']
        self.session = {'sessionId': session}
        for domain in ('Page', 'Runtime', 'Network', 'Log'):
            self.call(f'{domain}.enable')

    def close(self):
        os.close(self.commands)
        os.close(self.answers)
        try:
            self.process.wait(timeout=LONGEST_WAIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def call(self, method, **parameters):
        self.last += 1
        message = {'id': self.last, 'method': method, 'params': parameters, **self.session}
        os.write(self.commands, json.dumps(message).encode() + b'\0')
        answer = self.wait_for(lambda one: one.get('id') == self.last)
        expect('error' not in answer, f'{method}: {answer}')
        return answer['result']

    def wait_for(self, is_wanted):
        end = time.monotonic() + LONGEST_WAIT
        while True:
            while b'\0' not in self.unread:
                ready = select.select([self.answers], [], [], max(0, end - time.monotonic()))[0]
                piece = os.read(self.answers, 1 << 20) if ready else b''
                expect(piece, 'chromium gives no answer')
                self.unread += piece
            message, self.unread = self.unread.split(b'\0', 1)
            message = json.loads(message)
            self.events.append(message)
            if is_wanted(message):
                return message

    def evaluate(self, expression):
        answer = self.call('Runtime.evaluate', expression=expression, returnByValue=True,
                           awaitPromise=True)
        expect('exceptionDetails' not in answer, f'{answer}')
        return answer['result'].get('value')

    def open(self, page, scheme='light', media='screen', width=1000):
        self.call('Emulation.setEmulatedMedia', media=media,
                  features=[{'name': 'prefers-color-scheme', 'value': scheme}])
        self.call('Emulation.setDeviceMetricsOverride', width=width, height=800, deviceScaleFactor=1,
                  mobile=False)
        self.events.clear()
        self.call('Page.navigate', url=page.as_uri())
        self.wait_for(lambda one: one.get('method') == 'Page.loadEventFired')

    def complaints(self):
        """What the page did since it was opened, but for being loaded."""
        loud = ('Log.entryAdded', 'Runtime.consoleAPICalled', 'Runtime.exceptionThrown',
                'Page.javascriptDialogOpening')
        requests = [one['params']['request']['url'] for one in self.events
                    if one.get('method') == 'Network.requestWillBeSent']
        return [one for one in self.events if one.get('method') in loud] + requests[1:]


class Pages(world.World):
    """A machine with a broken product, and the pages of runs on it."""

    def __init__(self, options, folder):
        super().__init__(options.linux, options.tlx, options.key, folder)
        broken = (SAMPLES / 'broken_product.xml').read_text()
        body = broken[broken.index('<script>') + len('<script>'):broken.rindex('<exit')]
        self.machine = self.make_machine(folder / 'machine', body)
        self.rules = options.rules and pathlib.Path(options.rules).read_text(encoding='utf-8')
        self.browser = None

    def rehearse(self, script, *words, code=0):
        done = subprocess.run([self.tlx, 'rehearse', script, '--machine', self.machine, *words],
                              capture_output=True, timeout=world.TIME_LIMIT, check=False)
        expect(done.returncode == code, f'{script}: {done}')
        return done.stdout.decode()

    def script(self, folder, text, *values):
        path = folder / 'script.xml'
        path.write_text(text.format(*map(html.escape, values)), encoding='utf-8')
        return path

    def page(self, folder, script, code=0):
        path = folder / 'page.html'
        self.rehearse(script, '--html', path, code=code)
        return path

    def sample(self, folder):
        return self.page(folder, SAMPLES / 'repair_product.xml')

    def hostile(self, folder):
        named = folder / '<img src=x onerror=alert(1)>.xml'
        self.script(folder, EVIL_SCRIPT, EVIL).rename(named)
        return self.page(folder, named)

    def failing(self, folder):
        return self.page(folder, self.script(folder, ROAD_SCRIPT, 'r'), 1)

    def refused(self, folder):
        self.pack(folder / 'unsigned.tlx', '<exit/>')
        return self.page(folder, folder / 'unsigned.tlx', 1)

    def long(self, folder):
        numbers = ';'.join(map(str, range(6000)))
        return self.page(folder, self.script(folder, LONG_SCRIPT, 'l', numbers, 'x' * 100_000))

    def kept(self, folder):
        script = self.script(folder, EVIL_SCRIPT, EVIL)
        self.rehearse(script, '--keep', folder / 'set')
        page = folder / 'page.html'
        manifest = folder / 'set' / 'manifest.json'
        before = manifest.read_bytes()
        for target, code in ((manifest, 1), (page, 0)):
            subprocess.run([self.tlx, 'changes', folder / 'set', '--html', target],
                           check=code == 0, capture_output=True)
        expect(manifest.read_bytes() == before, 'a page was written over the manifest')
        return page


def told(this, folder):
    """The JSON is what the schema says, alone on standard output, and goes with its script only."""
    schema = ROOT / 'docs' / 'rehearsal.schema.json'
    resolver = jsonschema.RefResolver(schema.as_uri(), json.loads(schema.read_text()))
    script = this.script(folder, EVIL_SCRIPT, EVIL)
    for path, code in ((script, 0), (SAMPLES / 'first_patch.xml', 0), (folder, 1)):
        if path == folder:
            this.pack(folder / 'unsigned.tlx', '<exit/>')
        line = this.rehearse(path, '--json', code=code)
        expect(line.count('\n') == 1, f'{path}: not one line: {line[:200]}')
        jsonschema.Draft7Validator(resolver.referrer, resolver=resolver).validate(json.loads(line))
        (folder / f'{path.name}.json').write_text(line)
    other = folder / 'other.xml'
    other.write_text((SAMPLES / 'first_patch.xml').read_text().replace('"3"', '"4"', 1))
    for path, rehearsal, words in ((other, 'first_patch.xml.json', 'a rehearsal of another script'),
                                   (script, 'script.xml', 'it is no rehearsal of a script'),
                                   (script, f'{folder.name}.json', 'it is no rehearsal of a script')):
        done = subprocess.run([this.tlx, 'graph', path, '--visited', folder / rehearsal],
                              capture_output=True, check=False)
        expect(done.returncode == 1 and words in done.stderr.decode(), f'{rehearsal}: {done}')


def road(this, folder):
    """The edges that the run took are painted, and no others, also behind a byte-order mark."""
    script = this.script(folder, '\ufeff' + ROAD_SCRIPT, 'r')
    (folder / 'r.json').write_text(this.rehearse(script, '--json', code=1))
    dot = subprocess.run([this.tlx, 'graph', script, '--visited', folder / 'r.json'], check=True,
                         capture_output=True).stdout.decode()
    painted = {line.split(' [')[0].strip() for line in dot.splitlines() if 'penwidth=3' in line}
    expect(painted == ROAD, f'{painted} in\n{dot}')
    entered = re.findall(r'  (c\d+) .*\\n(\d+) x"', dot)
    expect(entered == [('c0', '1'), ('c1', '1'), ('c2', '2'), ('c3', '2'), ('c4', '1'), ('c6', '1'),
                       ('c8', '1')], f'{entered}')


def output(this, folder):
    """A page goes to standard output alone, and never over what was read."""
    script = this.script(folder, ROAD_SCRIPT, 'r')
    page = this.rehearse(script, '--html', '-', code=1)
    expect(page.startswith('<!DOCTYPE html>') and page.endswith('</html>\n'), page[:200])
    this.pack(folder / 'p.tlx', '<exit/>')
    for path in (script, folder / 'p.tlx'):
        before = path.read_bytes()
        this.rehearse(path, '--html', path, code=1)
        expect(path.read_bytes() == before, f'{path} was written to')
    this.rehearse(script, '--html', '-', '--json', code=2)


def opens(this, folder, make):
    """Nothing is loaded, said or run; all elements are ours; all text is there, none is too wide."""
    page = make(this, folder)
    expect(page.stat().st_size < LARGEST_PAGE, f'{page.stat().st_size} bytes')
    browser = this.browser
    for width in (1000, 320):
        browser.open(page, width=width)
        wide = browser.evaluate('document.documentElement.scrollWidth')
        expect(wide <= width, f'{wide} pixels on a screen of {width}')
    names = set(browser.evaluate('[...document.querySelectorAll("*")].map((one) => one.localName)'))
    expect(names <= ELEMENTS, f'elements: {names - ELEMENTS}')
    attributes = set(browser.evaluate('[...document.querySelectorAll("*")].flatMap('
                                      '(one) => one.getAttributeNames())'))
    expect(not any(name.startswith('on') or name in ('src', 'style') for name in attributes),
           f'{attributes}')
    astray = browser.evaluate('[...document.querySelectorAll("[href]")]'
                              '.map((one) => one.getAttribute("href")).filter('
                              '(one) => one[0] !== "#" || !document.getElementById(one.slice(1)))')
    expect(not astray, f'links lead astray: {astray[:5]}')
    expect(not browser.complaints(), f'{browser.complaints()[:3]}')
    if make in (Pages.hostile, Pages.kept):
        text = browser.evaluate('document.body.textContent')
        expect(SEEN in text and 'a\\u202Etxt.exe' in text, 'a text is not as it was')
        expect(not set(EVIL[-5:]) & set(text), 'something unseen is left')
    if make is Pages.long:
        text = browser.evaluate('document.body.textContent')
        for words in ('the picture, since', 'Left out here: 1004 lines more', '[left out here: '):
            expect(words in text, f'{words!r} is not told')


def accessible(this, folder, make):
    """By the rules of axe-core; text in pictures, which it doesn't judge, has its contrast too."""
    page = make(this, folder)
    for scheme, media in (('light', 'screen'), ('dark', 'screen'), ('light', 'print')):
        faults = axe_faults(this, page, scheme, media)
        expect(not faults, f'{scheme} {media}: {faults}')


def axe_faults(this, page, scheme, media):
    this.browser.open(page, scheme, media)
    this.browser.evaluate('document.querySelectorAll("details").forEach((one) => { one.open = true; })')
    this.browser.evaluate(this.rules + ';0')
    found = this.browser.evaluate(
        'axe.run(document).then((all) => all.violations.map((one) => '
        '[one.id, one.nodes.slice(0, 3).map((node) => node.html.slice(0, 200))]))')
    faint = this.browser.evaluate(FAINT)
    return found + ([['svg-contrast', faint[:3]]] if faint else [])


# The texts in pictures whose contrast with what is behind them is less than 4.5 (WCAG 2.2, 1.4.3).
FAINT = """(() => {
  const light = (color) => {
    const [r, g, b] = color.match(/\\d+/g).map((one) => one / 255)
        .map((one) => one <= 0.04045 ? one / 12.92 : ((one + 0.055) / 1.055) ** 2.4);
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const page = getComputedStyle(document.body).backgroundColor;
  return [...document.querySelectorAll("svg text, svg tspan")].filter((one) => {
    const box = one.closest(".box");
    const behind = light(box ? getComputedStyle(box.querySelector("rect")).fill : page);
    const text = light(getComputedStyle(one).fill);
    return (Math.max(behind, text) + 0.05) / (Math.min(behind, text) + 0.05) < 4.5;
  }).map((one) => one.outerHTML);
})()"""


def faults_found(this, folder):
    """The checks of pages find what they look for."""
    page = this.sample(folder)
    planted = ('<img src="x.png" onerror="alert(1)" style="top: 0"><font color="#cccccc">faint</font>'
               '<h6>deep</h6><input><svg class="flow"><text class="tip">faint</text></svg>')
    page.write_text(page.read_text().replace('<main', planted + '<main', 1))
    ids = {fault[0] for fault in axe_faults(this, page, 'light', 'screen')}
    expect({'color-contrast', 'svg-contrast', 'image-alt', 'label', 'heading-order'} <= ids, f'{ids}')
    expect('Content Security Policy' in str(this.browser.complaints()), f'{this.browser.complaints()}')


# The place in the document of what has the focus, whether that is to be seen, and where it leads.
FOCUS = """(() => {
  const one = document.activeElement;
  const box = one.querySelector(":scope > rect");
  return [[...document.querySelectorAll("*")].indexOf(one),
          getComputedStyle(one).outlineStyle !== "none" ||
              box !== null && getComputedStyle(box).strokeWidth === "4px",
          one.getAttribute("href")];
})()"""


def keyboard(this, folder):
    """Every control can be reached in the order of the page, is seen to be, and the first one skips."""
    browser = this.browser
    browser.open(this.failing(folder))
    wanted = browser.evaluate("""
        [...document.querySelectorAll("a, summary, input, [tabindex='0']")]
            .filter((one) => one.checkVisibility()).length""")
    reached = []
    for _ in range(wanted):
        for kind in ('rawKeyDown', 'keyUp'):
            browser.call('Input.dispatchKeyEvent', type=kind, key='Tab', code='Tab',
                         windowsVirtualKeyCode=9)
        reached.append(browser.evaluate(FOCUS))
    places = [place for place, _, _ in reached]
    expect(places == sorted(set(places)), f'the order is {reached}')
    expect(all(is_seen for _, is_seen, _ in reached), f'the focus is hidden: {reached}')
    expect(reached[0][2] == '#content', f'{reached[0]}')


def filtered(this, folder):
    """The filter shows lines; without scripts all are there. What is folded is printed."""
    browser = this.browser
    page = this.sample(folder)
    shown = ('[...document.querySelectorAll(".trace pre > span")]'
             '.filter((one) => one.checkVisibility()).length')
    browser.open(page)
    lines = browser.evaluate(shown)
    browser.evaluate('document.getElementById("filter").focus()')
    browser.call('Input.insertText', text='REGWRITE')
    expect(0 < browser.evaluate(shown) < lines, 'the filter shows all, or nothing')
    browser.call('Page.printToPDF')
    folded = 'document.querySelectorAll("details:not([open])").length'
    expect(browser.evaluate(folded) > 0, 'printing has unfolded the page for good')
    browser.call('Emulation.setScriptExecutionDisabled', value=True)
    browser.open(page, media='print')
    browser.call('Emulation.setScriptExecutionDisabled', value=False)
    expect(browser.evaluate(shown) == lines, 'without scripts, lines are missing')
    expect(browser.evaluate('document.querySelector(".filter").hidden'), 'a filter that does nothing')
    expect(browser.evaluate('[...document.querySelectorAll("details td")]'
                            '.every((one) => one.checkVisibility())'), 'what is folded is not printed')


ROWS = {'json': (told,), 'road': (road,), 'output': (output,), 'page/keyboard': (keyboard,),
        'page/filter': (filtered,), 'rules/faults': (faults_found,)}
for _make in (Pages.sample, Pages.hostile, Pages.failing, Pages.refused, Pages.long, Pages.kept):
    ROWS[f'page/opens/{_make.__name__}'] = (opens, _make)
    if _make is not Pages.long:
        ROWS[f'rules/{_make.__name__}'] = (accessible, _make)


def start_browser(folder):
    """The browser and None, or None and the reason why none starts."""
    program = shutil.which('chromium')
    if program is None:
        return None, 'there is no Chromium'
    folder.mkdir()
    browser = Browser(program, folder)
    try:
        browser.attach()
        return browser, None
    except (world.Fault, OSError) as fault:
        browser.close()
        return None, f'Chromium does not start: {fault}'


def main():
    parser = world.option_parser('Reads what tlx tells of runs, and opens its pages.')
    parser.add_argument('--rules', metavar='AXE.js', help="axe-core's rules")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix='tessel-pages.') as name:
        root = pathlib.Path(name).resolve()
        this = Pages(options, root)
        this.browser, no_browser = start_browser(root / 'profile')

        def run(row, action, *rest):
            folder = root / row.replace('/', '.')
            folder.mkdir()
            return world.fault_of(lambda: action(this, folder, *rest))

        def lacking(row):
            if row.startswith('rules/') and not this.rules:
                return 'there are no rules of accessibility'
            return surroundings.views() or (
                no_browser if row.startswith(('page/', 'rules/')) else None)

        try:
            return world.run_rows(((row, *rest) for row, rest in ROWS.items()), options,
                                  lacking, run)
        finally:
            if this.browser:
                this.browser.close()


if __name__ == '__main__':
    sys.exit(main())
