"""Cases in which a short script is loaded or refused, one run each, in tables."""

import expectations

_HEADER = ('<header><property name="id" value="load"/>'
           '<property name="patchType" value="external"/>'
           '<property name="created" value="@NOW@"/></header>')

# What the reset of the engine leaves in the trace.
_RESET = '  set trace file: (null) | ~\n'

_DEFAULT_DAYS = '  Use default value for expirationDays.\n'


def _refused(code, reason, stderr='Failed to load patch.', is_reset_before=True):
    return f"""
exit: 1636
stderr: {stderr}
trace load:
{_RESET if is_reset_before else ''}{reason}
  Error running xml script from file '@DIR@\\patch.tlx': {code} * | ~
{_RESET}"""


def _loaded(lines=''):
    return f"""
exit: -1
trace load:
{_RESET}{lines}
trace run: Start executing
trace end:
{_RESET}"""


_ENDS_WITH_0 = 'exit: 0\ntrace some: Stop executing\n'


def _versions():
    for version in ('1', '  01.5 beta', '1,9'):
        yield version, f'<p version="{version}">{_HEADER}<script/></p>', _loaded(_DEFAULT_DAYS)
    for version in ('2.0', '-1.0', 'one', '4294967297.0'):
        yield version, f'<p version="{version}">{_HEADER}<script/></p>', _refused(
            1636, f'  Cannot continue... Expected version: 1.0, current version: {version}',
            is_reset_before=False)
    for name, attribute in (('empty', 'version=""'), ('miscased', 'Version="1.0"')):
        yield name, f'<p {attribute}>{_HEADER}<script/></p>', _refused(
            1636, '  Version not found', is_reset_before=False)


def _documents():
    for reason, document in (
            ('Root not found', '<!-- nothing else -->'),
            # It is looked for before the version.
            ('Script node not found', f'<p>{_HEADER}<Script/><x><script/></x></p>')):
        yield reason, document, _refused(13, f'  {reason}', is_reset_before=False)
    # Any root and order will do, and the first of several counts.
    yield 'any root', (f'<script version="1.0"><script> text <![CDATA[<oops/>]]></script>{_HEADER}'
                       '<header/><script><oops/></script></script>'), _loaded(_DEFAULT_DAYS)


def _script(body):
    return f'<p version="1.0">{_HEADER}<script>{body}</script></p>'


_INVALID = "Function '{}' has invalid parameters (attributes)"


def _commands():
    for element in (
            '<fileMove src="x"/>', '<fileDownload url="" file="x"/>',
            '<stringGet var="v" value="" fromIndex="" maxCount="1" toAnyChar=""/>',
            '<goto Target="x"/>', '<test operator="&gt;" type="string" left="" right=""/>',
            '<test operator="==" type="String" left="" right=""/>',
            '<regWrite root="hkey_users" key="" value="" data="" type="REG_SZ"/>',
            '<regWrite root="HKEY_USERS" key="" value="" data="" type="REG_NONE"/>',
            # What the regular expression library refuses.
            '<assignToken var="v" value="" regexp="(" index="0"/>',
            '<dirCopyRec src="x" dest="x" include="[a"/>',
            '<dirCopyRec src="x" dest="x" exclude="*"/>'):
        yield element, _script(f'<nothing/>{element}'), _refused(
            13, '  ' + _INVALID.format(element[1:].split()[0]))
    for body, reason in (
            ('<for var="p" value="a"/>', 'For function is invalid'),
            ('<xmlForEach xpath="x" step="." destHandle="e"/>', 'xmlForEach function is invalid'),
            ('<xmlForEach handle="h" xpath="x" destHandle="e"/>', 'xmlForEach function is invalid'),
            ('<xmlForEach handle="h" xpath="x" step="."/>', 'xmlForEach function is invalid'),
            # The command that the loop becomes is refused.
            ('<jsonForEach handle="j" destHandle="e"/>', _INVALID.format('jsonGetElement'))):
        yield body, _script(body), _refused(13, f'  {reason}')
    for body, name in (
            ('<exit/><Exit id="x"/>', 'Exit'), ('<onTrue/>', 'onTrue'),
            # A handler inside a loop is a command of its body.
            ('<for var="p" value="a" delim=";"><onerror/></for>', 'onerror'),
            ('<traceSetFile><onsuccess><test type="string" operator="==" left="" right=""><onFalse>'
             '<nothing/><nope/></onFalse></test></onsuccess></traceSetFile>', 'nope')):
        yield f'unknown-{name}', _script(body), _refused(13, f"  Function '{name}' not found")


def _property(entry):
    return '<property name="{}" value="{}"/>'.format(*entry.split('='))


def _dated(properties, body=''):
    elements = ''.join(map(_property, properties.split()))
    return f'<p version="1.0"><header>{elements}</header><script>{body}</script></p>'


def _labels_and_handlers():
    no_err = ("  Handler 'onerrorspec' for function 'traceSetFile' does not have err attribute"
              ' or it is empty')
    for label, body in (
            ('x', '<exit/><onErrorGoTo target="x"/>'),
            # The first in order is told, case counts, and nothing is expanded.
            ('B', '<goto target="b"/><goto target="a"/><goto target="B"/><nothing id="a"/>'),
            ('%x%', '<assign var="x" value="y"/><nothing id="y"/><goto target="%x%"/>'),
            # One on a loop is lost.
            ('x', '<for id="x" var="p" value="a" delim=";"/><goto target="x"/>')):
        yield 'missing', body, _refused(
            1636, f"{_DEFAULT_DAYS}  Label '{label}' is reffered, but not present")
    # A handler is compiled before its owner gets its label.
    yield ('twice', '<traceSetFile id="x"><onsuccess><nothing id="x"/></onsuccess></traceSetFile>',
           _refused(13, "  Label 'x' is used for two different function instances."))
    yield ('onerrorspec', '<traceSetFile><onerrorspec err="5"/><onerrorspec err=""/></traceSetFile>',
           _refused(13, no_err))
    yield 'good', '<exit target="nowhere"/><nothing id=""/><trace id=""/>', _ENDS_WITH_0


def _exit_codes():
    """The attribute code, the number that it reads as, and the process's exit code."""
    for code, number, exit_code in (
            ('%five%', 0, 0), ('  +12 apples', 12, -12), ('-2147483649', -2147483648, -2147483648)):
        yield code, _script(f'<assign var="five" value="5"/><exit code="{code}"/>'), (
            f'exit: {exit_code}\ntrace some: Exit function called with exitcode {number}\n')


_EXPIRED = '  Patch exceeded expiration period'


def _expiry():
    """Properties, whether a patch with these runs, and whether the default number of days was taken."""
    expired = 'Patch is no longer valid.'
    for properties, is_valid, is_default in (
            ('created=@NOW-91d@ expires=0', False, True), ('created=@NOW+1d@ expires=10', False, False),
            ('created=5 expires=1 created=@NOW-3d@ expires=4days', True, False),
            ('patchType=Update created=@NOW-91d@', False, True)):
        lines = _DEFAULT_DAYS if is_default else ''
        yield properties, _dated('patchType=external ' + properties), (
            _loaded(lines) if is_valid else _refused(1460, lines + _EXPIRED, stderr=expired))
    # An update never does, by the last type; and the order of the refusals.
    yield 'last', _dated('patchType=external created=@NOW+1d@ patchType=update'), _loaded()
    yield 'command-first', _dated('', '<nope/>'), _refused(13, "  Function 'nope' not found")
    yield 'before-labels', _dated('', '<goto target="x"/>'), _refused(
        1460, _DEFAULT_DAYS + _EXPIRED, stderr=expired)


def all_cases():
    families = {'version': _versions(), 'document': _documents(),
                'command': _commands(), 'exit-code': _exit_codes(),
                'label': ((name, _script(body), text)
                          for name, body, text in _labels_and_handlers()),
                'expiry': _expiry()}
    for family, rows in families.items():
        for at, (name, script, text) in enumerate(rows):
            yield expectations.case(family, f'{at:02}-{name}', text, script=script.encode())
