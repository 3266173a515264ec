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

_UNREADABLE = """
exit: {code}
stderr:
  Failed to load the patch. Error: {code}.
trace all:
  Started from @BIN@\\
  ~
  Command line parsed, validate arguments
  Input file used: {path}
  set script path: {path}
  Decrypting
  Error reading file '{path}': {code}
"""

_UNDECRYPTABLE = """
exit: 6001
stderr:
  Failed to decrypt the patch.
trace all:
  Started from @BIN@\\
  ~
  Command line parsed, validate arguments
  Input file used: @DIR@\\patch.tlx
  set script path: @DIR@\\patch.tlx
  Decrypting
  Error decrypting patch content
  Extension of file .tlx
  @NOWHERE@
"""

_CORRUPT = """
exit: 13
stderr:
  Failed to load patch.
trace some:
  Decrypting
  Running patch of type: *, with id: *
  Loading decrypted file
  Cannot parse file from '@DIR@\\patch.tlx'
  ~
"""

_USAGE = """
  Usage:
  ~@PROGRAM@ [/encfile] <path> [/debug] [/var key value][*]
  ~
"""

_MISSING = """
exit: 87
stderr:
  Could not validate input parameters.
trace all:
  Started from @BIN@\\
  ~
  Command line parsed, validate arguments
  Argument pair '/encfile <path>' is missing
  ~
""" + _USAGE

# The text ends with a line feed of its own, the format with another, and the line with a third.
_REFUSED = """
exit: 87
stderr:
  Could not parse input parameters.
trace all:
  Started from @BIN@\\
  ~
  {text}
  ~
  ~
""" + _USAGE

_RAN = """
exit: {code}
trace run:
  Start executing
  Trace: first block
  test function called ('{word}' 1 'said'). type: 0
  test function end with {outcome}.
{handler}  Exit function called with exitcode {script_code}
  Stop executing
"""
_NOT_SAID = _RAN.format(code=-7, word='%word%', outcome='False', handler='', script_code=7)
_SAID = _RAN.format(code=-11, word='said', outcome='True', script_code=11,
                    handler='  Entering onTrue handler.\n')


# A mark that is there stays the only one, and none is put into the middle.
_APPENDED = """
exit: -7
file @DIR@\\log.txt:
  an older line
  * @NOWHERE@
  * Use default value for expirationDays.
  * Execute
  * Start executing
  * Trace: first block
  * test function called ('%word%' 1 'said'). type: 0
  * test function end with False.
  * Exit function called with exitcode 7
  * Stop executing
  * tool_ran event data: *
  ]
  * ToolRan::Process result = [0]
  * End execution
  * set trace file: (null)
  ~
"""


def _write(data):
    return lambda patch: patch.write_bytes(data)


def _flip(block):
    def prepare(patch):
        data = bytearray(patch.read_bytes())
        data[block * 256 + 128] ^= 1
        patch.write_bytes(data)
    return prepare


def _cut_file(size):
    return lambda patch: patch.write_bytes(patch.read_bytes()[:size])


def _swap_blocks(patch):
    data = patch.read_bytes()
    patch.write_bytes(data[256:512] + data[:256] + data[512:])


def _write_log(data):
    return lambda patch: patch.with_name('log.txt').write_bytes(data)


def _files():
    yield 'empty', {'prepare': _write(b'')}, _UNREADABLE.format(code=1006, path='@DIR@\\patch.tlx')
    yield ('folder', {}, 'args: /encfile @DIR@' + _UNREADABLE.format(code=5, path='@DIR@'))
    for size in (1, 255, 256, 257):
        yield f'junk-of-{size}', {'prepare': _write(b'\x07' * size)}, _UNDECRYPTABLE
    for block in range((len(_SCRIPT) + 244) // 245):
        yield (f'flipped-in-block-{block}', {'script': _SCRIPT, 'prepare': _flip(block)},
               _UNDECRYPTABLE)
    yield 'last-block-cut', {'script': _SCRIPT, 'prepare': _cut_file(511)}, _UNDECRYPTABLE
    yield 'byte-too-many', {'script': _SCRIPT, 'prepare': lambda patch: patch.write_bytes(
        patch.read_bytes() + b'\0')}, _UNDECRYPTABLE
    yield 'strangers-key', {'script': _SCRIPT, 'is_strangers': True}, _UNDECRYPTABLE
    # Whole blocks are gone or out of place: each deciphers, and what they give is no XML.
    yield 'block-missing', {'script': _SCRIPT, 'prepare': _cut_file(512)}, _CORRUPT
    yield 'blocks-swapped', {'script': _SCRIPT, 'prepare': _swap_blocks}, _CORRUPT


def _texts():
    yield 'whole', {'script': _SCRIPT}, _NOT_SAID
    yield 'zero-byte-behind-the-root', {'script': _SCRIPT + b'\0<junk'}, _NOT_SAID
    yield 'zero-byte-inside', {'script': _SCRIPT.replace(b'first block', b'first\0block')}, _CORRUPT
    yield 'zero-byte-only', {'script': b'\0'}, _CORRUPT
    yield 'blanks-only', {'script': b' \r\n\t'}, _CORRUPT
    yield 'byte-order-mark', {'script': b'\xef\xbb\xbf' + _SCRIPT}, _NOT_SAID
    yield ('bad-utf-8', {'script': _SCRIPT.replace(b'first block', b'a\xffb\xc3 \xed\xa0\x80c')},
           _NOT_SAID.replace('first block', 'a\ufffdb\ufffd \ufffd\ufffd\ufffdc'))
    yield 'bad-utf-8-only', {'script': b'\xc3' * 300}, _CORRUPT
    wide = '\U0001f600\u00e9'
    yield ('beyond-the-basic-plane', {'script': _SCRIPT.replace(b'first block', wide.encode())},
           _NOT_SAID.replace('first block', wide))
    # TinyXML takes a declaration without its end, and the document has no root then.
    yield 'cut-in-the-declaration', {'script': _SCRIPT[:30]}, """
exit: 1636
stderr:
  Failed to load patch.
trace some:
  Root not found
"""
    for size in range(61, len(_SCRIPT) - 2, 61):
        yield f'cut-at-{size:03}', {'script': _SCRIPT[:size]}, _CORRUPT
    root = b'<p version="1.0"><script>'
    yield 'nested-100000-deep', {'script': root + b'<a>' * 100_000}, _CORRUPT
    yield ('nested-100000-deep-and-closed',
           {'script': root + b'<a>' * 100_000 + b'</a>' * 100_000 + b'</script></p>'}, _CORRUPT)
    nested = b'<nothing><onTrue>' * 10_000 + b'</onTrue></nothing>' * 10_000
    yield 'nested-10000-handlers', {'script': root + nested + b'</script></p>'}, _CORRUPT


def _command_lines():
    yield 'no-arguments', 'args:' + _MISSING
    yield 'only-switches', 'args: /detach -SKIPinstancecheck' + _MISSING
    unknown = ('/debug', '/', '', '//encfile', '--encfile', 'patch.tlx', '/encfile:x', '/va')
    for at, argument in enumerate(unknown):
        yield (f'unknown-key-{at}', f"args: '{argument}' x" +
               _REFUSED.format(text=f"Unknown argument key: '{argument}'"))
    yield ('unknown-key-behind-a-good-one', 'args: /encfile @PATCH@ /Debug' +
           _REFUSED.format(text="Unknown argument key: '/Debug'"))
    yield ('value-missing', 'args: /detach /EncFile' + _REFUSED.format(
        text="Argument key '/EncFile' does not have the required value"))
    yield 'patch-missing', """
args: /encfile @DIR@\\\\none.tlx
exit: 3
stderr:
  Patch not found.
trace all:
  Started from @BIN@\\
  ~
  Command line parsed, validate arguments
  Input file used: @DIR@\\none.tlx
  set script path: @DIR@\\none.tlx
  Input file not existing... exit
"""
    yield 'switch-as-path', """
args: /encfile /detach
exit: 3
stderr:
  Patch not found.
trace some:
  Input file used: /detach
"""
    for name, prefix in (('slash', '/'), ('dash', '-'), ('none', '')):
        yield f'prefix-{name}', f'args: {prefix}ENCfile @PATCH@' + _NOT_SAID
    yield 'last-encfile-wins', 'args: /encfile /nowhere /encfile @PATCH@' + _NOT_SAID
    yield 'var', 'args: /var word said /encfile @PATCH@' + _SAID
    yield 'var-last-wins', 'args: /var word other /encfile @PATCH@ -VAR word said' + _SAID
    yield 'var-key-has-case', 'args: /encfile @PATCH@ /var Word said' + _NOT_SAID
    yield ('var-takes-a-switch', 'args: /encfile @PATCH@ /var word /detach' +
           _NOT_SAID.replace("('%word%'", "('/detach'"))
    yield ('var-without-value', 'args: /encfile @PATCH@ /var word' +
           _NOT_SAID.replace("('%word%'", "(''"))
    # What was traced before the switch was read is in the file only.
    yield 'diagnostic', 'args: /encfile @PATCH@ /diagnostic\nstdout:' + """
  Command line parsed, validate arguments
  Input file used: @DIR@\\patch.tlx
  set script path: @DIR@\\patch.tlx
  Decrypting
  Running patch of type: external, with id: container
  Cannot find cat operation functions!
  Old windows found, skip checks ...
  Loading decrypted file
  Prepare
  set trace file: (null)
  ~
  @NOWHERE@
  Use default value for expirationDays.
  Execute
  Start executing
  Trace: first block
  test function called ('%word%' 1 'said'). type: 0
  test function end with False.
  Exit function called with exitcode 7
  Stop executing
  End execution
  set trace file: (null)
  ~
""" + _NOT_SAID
    yield 'var-without-key', 'args: /encfile @PATCH@ /var' + _NOT_SAID
    yield 'var-with-blanks', ('args: /encfile @PATCH@ /var word "a  b &c"' +
                              _NOT_SAID.replace("('%word%'", "('a  b &c'"))
    yield ('detach', 'args: /detach /encfile @PATCH@ /detach\n'
           'stdout:\n  Patch validation finished.' + _NOT_SAID)
    yield 'detach-and-no-patch', """
args: /detach /encfile @DIR@\\\\none.tlx
exit: 3
stderr:
  Patch not found.
"""
    yield 'host-path', ('homes: linux - a host path is the host\'s own notion\n'
                        'args: /encfile @HOSTPATCH@' + _NOT_SAID)


def all_cases():
    for name, how, text in [*_files(), *_texts()]:
        yield expectations.Case(f'container/{name}', expectations.parse(text, name), **how)
    for name, text in _command_lines():
        yield expectations.Case(f'command-line/{name}', expectations.parse(text, name),
                                script=_SCRIPT)
    for name, mark in (('without-mark', b''), ('with-mark', b'\xef\xbb\xbf')):
        yield expectations.Case(
            f'log/appends-to-a-file-{name}', expectations.parse(_APPENDED, name),
            script=_SCRIPT.replace(b'<script>', b'<script log="@DIR@\\log.txt">'),
            prepare=_write_log(mark + b'an older line\r\n'))
