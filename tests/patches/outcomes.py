"""What came of each command of a run, as its trace tells it.

An outcome is a pair of texts: the command's name, and what came of it - 'success', "error '2'",
'True', or a word of this module where a command has no result. Only what the trace itself gives
away is told. Where two commands leave the same lines, the script has to settle which one it was.
"""

import re
import xml.etree.ElementTree as ElementTree

DONE = 'done'
REFUSED = 'refused at load'

# What a command's first line begins with. Where two share it, the last line tells them apart.
_STARTS = [
    (('regRead',), 'RegRead function called for '),
    (('regWrite',), 'RegWrite function called for '),
    (('processEntrypoint',), 'ProcessEntrypoint function from dll '),
    (('applyHqPolicies',), 'ReApplyHqPolicy function start'),
    (('fileCopySingle',), "fileCopySingle from '"),
    (('fileCopyPattern',), "fileCopyPattern from '"),
    (('fileDownload',), "fileDownload from '"),
    (('fileMove',), "fileMove from '"),
    (('dirMove',), "dirMove from '"),
    (('fileDeletePattern',), "fileDeletePattern from '"),
    (('fileFind',), "fileFind from '"),
    (('dirFind',), "DirFind from '"),
    (('dirCopyRec',), "dirCopyRec from '"),
    (('dirDeleteRec',), "dirDeleteRec from '"),
    (('xmlOpen',), "xmlOpen from '"),
    (('xmlSave',), "xmlSave in '"),
    (('xmlAddChild',), "xmlAddChild in '"),
    (('xmlRemoveChild',), "xmlRemoveChild in '"),
    (('xmlSetValue', 'xmlSetCDataValue'), "xmlSetValue in '"),
    (('xmlGetValue',), "xmlGetValue in '"),
    (('xmlGetElement',), "xmlGetElement in '"),
    (('iniGetValue',), "iniGetValue in '"),
    (('iniSetValue',), "iniSetValue in '"),
]
# One that has no line of its own at the start has none of another's either.
_STARTLESS = {'fileCreate', 'serviceInstalled', 'serviceRunning'}
# The word in front of a last line, where it isn't the command's name.
_END_WORDS = {
    'regRead': 'RegRead', 'regWrite': 'RegWrite', 'processEntrypoint': 'ProcessEntrypoint',
    'applyHqPolicies': 'ReApplyHqPolicy', 'fileDownload': 'fileCopySingle',
    'fileFind': 'fileDeletePattern', 'dirFind': 'fileDirFind', 'xmlGetElement': 'xmlGetValue'}
_CALLED = re.compile(r'([a-z]\w+) function called\b')
_END = re.compile(r"(\w+) function end with (?:(?:success|error)\. err:'(.*)'|(True|False)\.)",
                  re.DOTALL)
_JSON_START = re.compile(r'(json\w+) begin +\[')
_JSON_END = re.compile(r'(json\w+) end +\[.*\[error = (-?\d+)\]', re.DOTALL)
_JSON_SET = re.compile(r'jsonSetIntValue begin +\[handle = (.*?)\] \[path = (.*)\] \[value = (.*)\]',
                       re.DOTALL)
_REFUSAL = re.compile(r"Function '(\w+)' has invalid parameters \(attributes\)|"
                      r'(For|xmlForEach|jsonForEach) function is invalid')
# Commands that have one line, or one for each way that they can go.
_LINES = [
    ('nothing', DONE, re.compile("Executing 'nothing' function")),
    ('exit', DONE, re.compile('Exit function called with exitcode ')),
    ('trace', DONE, re.compile('Trace: ')),
    ('trace', 'to standard error', re.compile(r'Trace \[stderr\]: ')),
    ('trace', 'to standard output', re.compile(r'Trace \[stdout\]: ')),
    ('traceSetFile', 'success', re.compile('TraceSetFile skipped')),
    ('sleep', DONE, re.compile('Sleep function called: ')),
    ('goto', DONE, re.compile("GoTo label '(?!forbegin@|forend@)")),
    ('onErrorGoTo', 'takes a failure', re.compile('Entering onErrorGoTo handler')),
    ('assign', DONE, re.compile(r"Assign value '(?!.*to the variable forvar@P@$)")),
    ('assignToken', 'token found', re.compile('found token ')),
    ('assignToken', 'token not found', re.compile('token not found$')),
    ('addInt', DONE, re.compile("AddInt value '")),
    ('addString', DONE, re.compile("AddString value '")),
    ('stringDelete', DONE, re.compile('StringDelete variable (?!forvar@P@)')),
    ('stringGet', DONE, re.compile(r'StringGet variable ')),
    ('stringTrim', DONE, re.compile('StringTrim variable (?!forvar@P@)')),
    ('xmlClose', DONE, re.compile('xmlClose for handle: ')),
    ('jsonClose', DONE, re.compile(r'jsonClose      \[handle = ')),
]
_AGAIN = "GoTo label 'forbegin@P@'"
_LEFT = "GoTo label 'forend@P@'"
_FETCHED = ('Entering onsuccess handler.', _AGAIN)
_NONE_LEFT = re.compile(r"Entering onerror handler\. err='.*'")
_NOTHING = "Executing 'nothing' function"


def _elements(script):
    try:
        return list(ElementTree.fromstring(script or b'').iter())
    except ElementTree.ParseError:
        return []


class _Walk:
    """The way along the trace of one run."""

    def __init__(self, trace, script):
        self.trace = trace
        self.elements = _elements(script)
        self.outcomes = set()
        self.current = ()  # the commands that the last start may belong to

    def take(self, at, line):
        for command, outcome, pattern in _LINES:
            if pattern.match(line):
                self.outcomes.add((command, outcome))
                return
        for commands, start in _STARTS:
            if line.startswith(start):
                self.current = commands
                return
        refusal = _REFUSAL.fullmatch(line)
        if refusal:
            self.outcomes.add((refusal[1] or refusal[2].replace('For', 'for', refusal[2] == 'For'),
                               REFUSED))
            return
        called, json_start = _CALLED.match(line), _JSON_START.match(line)
        if called or json_start:
            self.current = ((called or json_start)[1],)
            if self.current == ('jsonSetIntValue',):
                self.current = self.setters(line)
            return
        self.take_end(at, line)

    def take_end(self, at, line):
        end, json_end = _END.fullmatch(line), _JSON_END.fullmatch(line)
        if json_end:
            outcome = 'success' if json_end[2] == '0' else f"error '{json_end[2]}'"
            # Both setters end as the one of numbers.
            for command in self.current if len(self.current) == 1 else ():
                self.add(at, command, outcome)
        elif end:
            outcome = end[3] or (f"error '{end[2]}'" if ' with error.' in line else 'success')
            for command in {*self.current, *_STARTLESS}:
                if _END_WORDS.get(command, command) == end[1]:
                    self.add(at, command, outcome)
        else:
            self.take_jump(at, line)
            return
        self.current = ()

    def add(self, at, command, outcome):
        self.outcomes.add((command, outcome))
        loop = {'xmlGetElement': 'xmlForEach', 'jsonGetElement': 'jsonForEach'}.get(command)
        if not loop or not any(element.tag == loop for element in self.elements):
            return
        behind = self.trace[at + 1:at + 4]
        if tuple(behind[:2]) == _FETCHED:
            self.outcomes.add((loop, 'goes on to the next'))
        elif behind and _NONE_LEFT.fullmatch(behind[0]):
            if behind[1:2] == [_LEFT]:
                self.outcomes.add((loop, 'finds nothing'))
            elif behind[1:3] == [_NOTHING, _NOTHING]:
                self.outcomes.add((loop, 'ends'))

    def take_jump(self, at, line):
        before = self.trace[at - 1] if at else ''
        if line == _AGAIN and before != _FETCHED[0]:
            self.outcomes.add(('for', 'goes on to the next'))
        elif line == _LEFT and before == 'Entering onTrue handler.':
            self.outcomes.add(('for', 'ends'))

    def setters(self, line):
        """Those of the script's setters that would begin with this line."""
        told = _JSON_SET.fullmatch(line)
        values = told.groups() if told else ()
        found = set()
        for element in self.elements:
            if element.tag in ('jsonSetIntValue', 'jsonSetBoolValue') and all(
                    re.fullmatch(re.sub('%.*?%', '.*', re.escape(element.get(key, ''))), value)
                    for key, value in zip(('handle', 'path', 'value'), values)):
                found.add(element.tag)
        return tuple(found)


def told(trace, script):
    """The outcomes that a run's trace tells of, given the script that ran, or None."""
    walk = _Walk(trace, script)
    for at, line in enumerate(trace):
        walk.take(at, line)
    return walk.outcomes
