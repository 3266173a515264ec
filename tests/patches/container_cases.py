"""Cases that no script can express: broken patch files, and the command line."""

import expectations

_SCRIPT = b"""<?xml version="1.0" encoding="UTF-8"?>
<patch version="1.0">
  <header>
    <property name="id" value="container"/>
    <property name="patchType" value="external"/>
    <property name="created" value="@NOW@"/>
  </header>
  <script>
    <!-- Long enough for several blocks of the patch file. -->
    <trace value="first block"/>
    <test type="string" operator="==" left="%word%" right="said">
      <onTrue><exit code="11"/></onTrue>
    </test>
    <exit code="7"/>
  </script>
</patch>
"""

_STARTED = 'trace all:\n  Started from @BIN@\\ | ~\n'
_READ = _STARTED + """
  Command line parsed, validate arguments | Input file used: {path} | set script path: {path}
"""
_UNREADABLE = """
exit: {code}
stderr: Failed to load the patch. Error: {code}.
""" + _READ + '  Decrypting | Error reading file \'{path}\': {code}\n'
_UNDECRYPTABLE = """
exit: 6001
stderr: Failed to decrypt the patch.
""" + _READ.format(path='@DIR@\\patch.tlx') + """
  Decrypting | Error decrypting patch content | Extension of file .tlx | @NOWHERE@
"""
_CORRUPT = """
exit: 13
stderr: Failed to load patch.
trace some:
  Decrypting | Running patch of type: *, with id: * | Loading decrypted file
  Cannot parse file from '@DIR@\\patch.tlx' | ~
"""
_USAGE = '  Usage: | ~@PROGRAM@ [/encfile] <path> [/debug] [/var key value][*] | ~\n'
_MISSING = """
exit: 87
stderr: Could not validate input parameters.
""" + _STARTED + """
  Command line parsed, validate arguments | Argument pair '/encfile <path>' is missing | ~
""" + _USAGE
# The text ends with a line feed of its own, the format with another, and the line with a third.
_REFUSED = """
exit: 87
stderr: Could not parse input parameters.
""" + _STARTED + '  {text} | ~ | ~\n' + _USAGE
_NOT_FOUND = 'exit: 3\nstderr: Patch not found.\n' + _READ + '  Input file not existing... exit\n'
_RAN = """
exit: {code}
trace run:
  Start executing | Trace: first block | test function called ('{word}' 1 'said'). type: 0
  test function end with {outcome}.{handler} | Exit function called with exitcode {script_code}
  Stop executing
"""
_NOT_SAID = _RAN.format(code=-7, word='%word%', outcome='False', handler='', script_code=7)
_SAID = _RAN.format(code=-11, word='said', outcome='True', script_code=11,
                    handler=' | Entering onTrue handler.')
# A mark that is there stays the only one, and none is put into the middle.
_APPENDED = """
exit: -7
file @DIR@\\log.txt:
  an older line | * @NOWHERE@ | * Use default value for expirationDays. | * Execute
  * Start executing | * Trace: first block | * test function called ('%word%' 1 'said'). type: 0
  * test function end with False. | * Exit function called with exitcode 7 | * Stop executing
  * tool_ran event data: * | ] | * ToolRan::Process result = [0]
  * End execution | * set trace file: (null) | ~
"""


def _changed(change):
    """What puts the patch with its bytes changed in its place."""
    return {'script': _SCRIPT, 'prepare': lambda patch: patch.write_bytes(change(patch.read_bytes()))}


def _files():
    yield ('empty', {'prepare': lambda patch: patch.write_bytes(b'')},
           _UNREADABLE.format(code=1006, path='@DIR@\\patch.tlx'))
    yield 'folder', {}, 'args: /encfile @DIR@' + _UNREADABLE.format(code=5, path='@DIR@')
    for size in (1, 256):
        yield f'junk-of-{size}', _changed(lambda _, size=size: b'\x07' * size), _UNDECRYPTABLE
    for block in range((len(_SCRIPT) + 244) // 245):
        at = block * 256 + 128
        yield (f'flipped-in-block-{block}',
               _changed(lambda data, at=at: data[:at] + bytes([data[at] ^ 1]) + data[at + 1:]),
               _UNDECRYPTABLE)
    yield 'byte-too-many', _changed(lambda data: data + b'\0'), _UNDECRYPTABLE
    yield 'strangers-key', {'script': _SCRIPT, 'is_strangers': True}, _UNDECRYPTABLE
    # Whole blocks are gone or out of place: each deciphers, and what they give is no XML.
    yield 'block-missing', _changed(lambda data: data[:512]), _CORRUPT
    yield 'blocks-swapped', _changed(lambda data: data[256:512] + data[:256] + data[512:]), _CORRUPT


def _texts():
    def said(text):
        return _SCRIPT.replace(b'first block', text)
    yield 'whole', _SCRIPT, _NOT_SAID
    yield 'zero-byte-behind-the-root', _SCRIPT + b'\0<junk', _NOT_SAID
    yield 'zero-byte-inside', said(b'first\0block'), _CORRUPT
    yield 'byte-order-mark', b'\xef\xbb\xbf' + _SCRIPT, _NOT_SAID
    yield ('bad-utf-8', said(b'a\xffb\xc3 \xed\xa0\x80c'),
           _NOT_SAID.replace('first block', 'a\ufffdb\ufffd \ufffd\ufffd\ufffdc'))
    for size in range(61, len(_SCRIPT) - 2, 122):
        yield f'cut-at-{size:03}', _SCRIPT[:size], _CORRUPT
    root = b'<p version="1.0"><script>'
    yield 'nested-100000-deep', root + b'<a>' * 100_000, _CORRUPT
    nested = b'<nothing><onTrue>' * 10_000 + b'</onTrue></nothing>' * 10_000
    yield 'nested-10000-handlers', root + nested + b'</script></p>', _CORRUPT


def _command_lines():
    yield '/detach -SKIPinstancecheck', _MISSING
    for argument in ('/debug', '', '//encfile', 'patch.tlx', '/encfile:x', '/va'):
        yield f"'{argument}' x", _REFUSED.format(text=f"Unknown argument key: '{argument}'")
    yield '/detach /EncFile', _REFUSED.format(
        text="Argument key '/EncFile' does not have the required value")
    yield '/encfile @DIR@\\\\none.tlx', _NOT_FOUND.format(path='@DIR@\\none.tlx')
    yield '/encfile /detach', _NOT_FOUND.format(path='/detach')
    for arguments in ('ENCfile @PATCH@', '/encfile /nowhere -encfile @PATCH@ /var'):
        yield arguments, _NOT_SAID
    yield '/var word other /encfile @PATCH@ -VAR word said', _SAID
    yield ('/encfile @PATCH@ /var word "a  b &c"', _NOT_SAID.replace('%word%', 'a  b &c'))
    yield ('/detach /encfile @PATCH@ /detach', 'stdout: Patch validation finished.' + _NOT_SAID)
    yield '/encfile @HOSTPATCH@', 'only: linux - a host path is its own notion' + _NOT_SAID


def all_cases():
    for name, how, text in _files():
        yield expectations.case('container', name, text, **how)
    for name, script, text in _texts():
        yield expectations.case('container', name, text, script=script)
    for at, (arguments, text) in enumerate(_command_lines()):
        yield expectations.case('command-line', f'{at:02}-{arguments}', f'args: {arguments}\n{text}',
                                script=_SCRIPT)
    yield expectations.case(
        'log', 'appends-behind-a-mark', _APPENDED,
        script=_SCRIPT.replace(b'<script>', b'<script log="@DIR@\\log.txt">'),
        prepare=lambda patch: patch.with_name('log.txt').write_bytes(
            b'\xef\xbb\xbfan older line\r\n'))
