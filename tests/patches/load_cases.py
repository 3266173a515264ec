"""Cases in which a short script is loaded or refused, one run each, in tables."""

import expectations

_HEADER = ('<header><property name="id" value="load"/>'
           '<property name="patchType" value="external"/>'
           '<property name="created" value="@NOW@"/></header>')

# What the reset of the engine leaves in the trace.
_RESET = """
  set trace file: (null)
  ~
"""

_DEFAULT_DAYS = '  Use default value for expirationDays.\n'


def _refused(code, reason, stderr='Failed to load patch.', is_reset_before=True):
    return f"""
exit: 1636
stderr:
  {stderr}
trace load:
{_RESET if is_reset_before else ''}{reason}
  Error running xml script from file '@DIR@\\patch.tlx': {code} *
  ~
{_RESET}"""


def _loaded(lines=''):
    return f"""
exit: -1
trace load:
{_RESET}{lines}
trace run:
  Start executing
trace end:
{_RESET}"""


def _versions():
    for name, version in (('1.0', '1.0'), ('1.7', '1.7'), ('1', '1'), ('plus', '+1.0'),
                          ('blanks', '  01.5 beta'), ('comma', '1,9'), ('ends-in-point', '1.')):
        yield name, f'<p version="{version}">{_HEADER}<script/></p>', _loaded(_DEFAULT_DAYS)
    for name, version in (('2.0', '2.0'), ('0.9', '0.9'), ('10.0', '10.0'), ('negative', '-1.0'),
                          ('word', 'one'), ('point', '.1'), ('wraps-to-1', '4294967297.0')):
        yield name, f'<p version="{version}">{_HEADER}<script/></p>', _refused(
            1636, f'  Cannot continue... Expected version: 1.0, current version: {version}',
            is_reset_before=False)
    for name, attribute in (('missing', ''), ('empty', 'version=""'),
                            ('miscased', 'Version="1.0"')):
        yield name, f'<p {attribute}>{_HEADER}<script/></p>', _refused(
            1636, '  Version not found', is_reset_before=False)


def _documents():
    def refused(reason):
        return _refused(13, f'  {reason}', is_reset_before=False)
    yield 'no-root', '<!-- nothing else -->', refused('Root not found')
    yield 'no-script', f'<p version="1.0">{_HEADER}</p>', refused('Script node not found')
    yield 'miscased-script', f'<p version="1.0">{_HEADER}<Script/></p>', refused(
        'Script node not found')
    yield 'deeper-script', f'<p version="1.0">{_HEADER}<x><script/></x></p>', refused(
        'Script node not found')
    yield 'script-is-looked-for-before-the-version', f'<p>{_HEADER}</p>', refused(
        'Script node not found')
    yield ('any-root-and-order', f'<script version="1.0"><script/>{_HEADER}</script>',
           _loaded(_DEFAULT_DAYS))
    yield ('first-of-several', f'<p version="1.0">{_HEADER}<header/><script/>'
           '<script><oops/></script></p>', _loaded(_DEFAULT_DAYS))
    yield ('only-comments-and-text', f'<p version="1.0">{_HEADER}<script> text <!-- comment -->'
           '<![CDATA[<oops/>]]></script></p>', _loaded(_DEFAULT_DAYS))


# Each attribute of a command that must be there, with a value that serves. '?' marks one that may
# be empty.
_REQUIRED = {
    'sleep': {'milisec': '?0'},
    'goto': {'target': '?'},
    'onErrorGoTo': {'target': '?'},
    'assign': {'var': 'v', 'value': '?x'},
    'assignToken': {'var': 'v', 'value': '?x', 'regexp': '?x', 'index': '?0'},
    'addInt': {'var': 'v', 'value': '1'},
    'addString': {'var': 'v', 'value': 'x'},
    'stringDelete': {'var': 'v', 'fromIndex': '0', 'maxCount': '1', 'toAnyChar': ';'},
    'stringGet': {'var': 'v', 'fromIndex': '0', 'maxCount': '1', 'toAnyChar': ';', 'value': 'x'},
    'stringTrim': {'var': 'v', 'chars': 'x'},
    'test': {'operator': '==', 'type': 'string', 'left': '?x', 'right': '?x'},
    'iniGetValue': {'path': 'x', 'section': 'x', 'key': 'x', 'var': 'v'},
    'iniSetValue': {'path': 'x', 'section': 'x', 'key': 'x', 'value': '?x'},
    'fileExists': {'path': 'x'},
    'fileCopySingle': {'src': 'x', 'dest': 'x'},
    'fileDownload': {'file': 'x', 'url': 'x'},
    'fileMove': {'src': 'x', 'dest': 'x'},
    'dirMove': {'src': 'x', 'dest': 'x'},
    'fileCopyPattern': {'src': 'x', 'dest': 'x'},
    'fileDeletePattern': {'path': 'x'},
    'fileCreate': {'path': 'x'},
    'fileIsSigned': {'path': 'x'},
    'fileFind': {'dir': 'x', 'pattern': 'x', 'var': 'v', 'delim': ';'},
    'dirExists': {'path': 'x'},
    'dirCreate': {'path': 'x'},
    'dirFind': {'dir': 'x', 'pattern': 'x', 'var': 'v', 'delim': ';'},
    'dirCopyRec': {'src': 'x', 'dest': 'x'},
    'dirDeleteRec': {'path': 'x'},
}
# The others, whose attributes are only looked for here.
_ALSO_REQUIRED = """
regExistsKey root=HKEY_USERS key=x
regCreateKey root=HKEY_USERS key=x
regRead var=v root=HKEY_USERS key=x value=x
regWrite root=HKEY_USERS key=x value=x data=x type=REG_SZ
regGetKeys var=v root=HKEY_USERS key=x delim=x
regGetValues var=v root=HKEY_USERS key=x delim=x
regDeleteKey root=HKEY_USERS key=x
regDeleteValue root=HKEY_USERS key=x value=x
serviceInstalled name=x
serviceRunning name=x
serviceStart name=x
serviceStop name=x
serviceCreate name=x serviceType=16 startType=3 errorControl=1
serviceDelete name=x
processRun path=x
processWait name=x waittime=0
processKill name=x
processImpersonateUser domain=x username=x password=x
processEntrypoint path=x entrypoint=x
amStart name=x
amStop name=x
xmlOpen path=x handle=h
xmlSave path=x handle=h
xmlClose handle=h
xmlGetValue handle=h xpath=x var=v
xmlSetValue handle=h xpath=x value=x
xmlSetCDataValue handle=h xpath=x value=x
xmlGetElement handle=h xpath=x destHandle=d
xmlAddChild handle=h xpath=x data=x
xmlRemoveChild handle=h xpath=x
jsonOpen path=x handle=h
jsonSave path=x handle=h
jsonClose handle=h
jsonGetValue handle=h path=x var=v
jsonSetStringValue handle=h path=x value=x
jsonSetIntValue handle=h path=x value=x
jsonSetBoolValue handle=h path=x value=x
jsonGetElement handle=h path=x destHandle=d
jsonAddChild handle=h path=x data=1
jsonRemoveChild handle=h path=x
"""


def _element(name, attributes):
    return f'<{name} ' + ' '.join(f'{key}="{value}"' for key, value in attributes.items()) + '/>'


def _required_attributes():
    """For each command: each attribute missing, miscased, and empty."""
    for command, required in _REQUIRED.items():
        good = {key: value.lstrip('?') for key, value in required.items()}
        optional_empties = dict(good)
        for key in required:
            without = {k: v for k, v in good.items() if k != key}
            yield f'{command}-without-{key}', _element(command, without), False
            yield (f'{command}-with-miscased-{key}',
                   _element(command, {**without, key.capitalize(): good[key]}), False)
            if required[key].startswith('?'):
                optional_empties[key] = ''
            else:
                yield f'{command}-with-empty-{key}', _element(command, {**good, key: ''}), False
        yield f'{command}-with-empty-texts', _element(command, optional_empties), True
    for line in _ALSO_REQUIRED.split('\n')[1:-1]:
        command, *entries = line.split()
        good = dict(entry.split('=') for entry in entries)
        for key in good:
            yield (f'{command}-without-{key}',
                   _element(command, {k: v for k, v in good.items() if k != key}), False)


def _enumerations():
    for key, values in (('operator', ('!=', '>', '&gt;=', '=', '')),
                        ('type', ('String', 'int', ''))):
        for at, value in enumerate(values):
            attributes = {'operator': '==', 'type': 'string', 'left': '', 'right': '', key: value}
            yield f'test-with-bad-{key}-{at}', _element('test', attributes), False
    for key, value in (('root', 'hkey_users'), ('type', 'REG_NONE')):
        attributes = {'root': 'HKEY_USERS', 'key': '', 'value': '', 'data': '', 'type': 'REG_SZ'}
        yield f'regWrite-with-bad-{key}', _element('regWrite', {**attributes, key: value}), False
    # One that the regular expression library refuses.
    for name, pattern in (('open-group', '('), ('open-class', '[a'), ('nothing-to-repeat', '*'),
                          ('bad-range', '[z-a]')):
        attributes = {'var': 'v', 'value': '', 'regexp': pattern, 'index': '0'}
        yield f'assignToken-with-{name}', _element('assignToken', attributes), False
        for filtering in ('include', 'exclude'):
            attributes = {'src': 'x', 'dest': 'x', filtering: pattern}
            yield f'dirCopyRec-with-{filtering}-{name}', _element('dirCopyRec', attributes), False


def _metadata():
    """What the header says of the patch; nothing in it stops the run at this point."""
    no_id = '  [ExtractPatchMetaData] Warning - attribute id not found...\n'
    no_type = '  [ExtractPatchMetaData] Warning - attribute patchType not found...\n'
    no_header = '  [ExtractPatchMetaData] Error - no header found...\n'
    rows = (
        ('all', 'id=a patchType=external tags=t', '', 'external', 'a'),
        ('last-wins', 'id=a patchType=update id=b patchType=external', '', 'external', 'b'),
        ('miscased', 'ID=a PatchType=external', no_id + no_type, '', ''),
        ('empty-ones', 'id= patchType=', no_id + no_type, '', ''),
        ('other-names-and-types', 'other=x id=a patchType=anything', '', 'anything', 'a'),
        ('no-id', 'patchType=external', no_id, 'external', ''),
        ('no-type', 'id=a', no_type, '', 'a'),
    )
    for name, properties, warnings, patch_type, ident in rows:
        yield name, _dated_header(properties), f"""
exit: -1
trace header:
{warnings}  Running patch of type: {patch_type}, with id: {ident}*
"""
    missing = '<property value="a"/><property name="id"/><property/>' + _property('created=@NOW@')
    yield 'attributes-missing', f'<p version="1.0"><header>{missing}</header><script/></p>', f"""
exit: -1
trace header:
{no_id}{no_type}  Running patch of type: , with id: *
"""
    inner = '<x><header><property name="id" value="a"/></header></x>'
    for name, header in (('no-header', ''), ('miscased-header', '<Header/>'),
                         ('deeper-header', inner)):
        yield name, f'<p version="1.0">{header}<script/></p>', f"""
exit: 1636
stderr:
  Patch is no longer valid.
trace header:
{no_header}  Running patch of type: , with id: *
"""


def _property(entry):
    return '<property name="{}" value="{}"/>'.format(*entry.split('='))


def _dated_header(properties):
    elements = ''.join(map(_property, ['created=@NOW@', *properties.split()]))
    return f'<p version="1.0"><header>{elements}</header><script/></p>'


def _script(body):
    return f'<p version="1.0">{_HEADER}<script>{body}</script></p>'


def _commands():
    for name, element, is_good in [*_required_attributes(), *_enumerations()]:
        command = name.partition('-')[0]
        if not is_good:
            reason = f"  Function '{command}' has invalid parameters (attributes)"
            yield name, _script(f'<nothing/>{element}'), _refused(13, reason)
        else:
            # The command stands behind the exit: only the load is looked at.
            yield name, _script(f'<exit/>{element}'), f"""
exit: 0
trace load:
{_RESET}{_DEFAULT_DAYS}
trace end:
{_RESET}"""
    for name, element, word in (
            ('for', {'var': 'v', 'value': 'x', 'delim': ';'}, 'For'),
            ('xmlForEach', {'handle': 'h', 'xpath': '.', 'step': '.', 'destHandle': 'd'},
             'xmlForEach'),
            ('jsonForEach', {'handle': 'h', 'path': 'x', 'destHandle': 'd'}, 'jsonForEach')):
        attribute = list(element)[-1]
        yield (f'{name}-with-empty-{attribute}', _script(_element(name, {**element, attribute: ''})),
               _refused(13, f'  {word} function is invalid'))
    for name in ('nope', 'Exit', 'onTrue', 'onerror', 'data', 'property'):
        reason = f"  Function '{name}' not found"
        yield f'unknown-{name}', _script(f'<exit/><{name} id="x"/>'), _refused(13, reason)
    yield ('unknown-in-handlers', _script(
        '<traceSetFile><onsuccess><test type="string" operator="==" left="" right="">'
        '<onFalse><nothing/><nope/></onFalse></test></onsuccess></traceSetFile>'),
           _refused(13, "  Function 'nope' not found"))


_NO_ERR = ("  Handler 'onerrorspec' for function 'traceSetFile' does not have err attribute"
           ' or it is empty')


def _labels_and_handlers():
    def missing(label):
        return _refused(1636, f"{_DEFAULT_DAYS}  Label '{label}' is reffered, but not present")

    def double(label):
        return _refused(13, f"  Label '{label}' is used for two different function instances.")
    yield 'goto-nowhere', '<exit/><goto target="there"/>', missing('there')
    yield 'onErrorGoTo-nowhere', '<exit/><onErrorGoTo target="there"/>', missing('there')
    yield ('first-in-order-is-reported',
           '<goto target="b"/><goto target="a"/><goto target="B"/><nothing id="a"/>', missing('B'))
    yield 'label-has-case', '<nothing id="There"/><goto target="there"/>', missing('there')
    yield ('target-is-not-expanded',
           '<assign var="x" value="there"/><nothing id="there"/><goto target="%x%"/>',
           missing('%x%'))
    yield 'target-on-another-command', '<exit target="nowhere"/>', """
exit: 0
"""
    yield ('label-on-an-ignored-child',
           '<nothing><onsuccess><nothing id="there"/></onsuccess></nothing><goto target="there"/>',
           missing('there'))
    yield 'label-twice', '<nothing id="x"/><trace id="x"/>', double('x')
    yield ('label-twice-after-goto', '<goto target="x"/><nothing id="x"/><trace id="x"/>',
           double('x'))
    # A handler is compiled before its owner gets its label.
    yield ('label-twice-in-own-handler',
           '<traceSetFile id="x"><onsuccess><nothing id="x"/></onsuccess></traceSetFile>',
           double('x'))
    yield 'empty-labels-are-none', '<exit/><nothing id=""/><trace id=""/>', """
exit: 0
"""
    yield ('onerrorspec-without-err', '<traceSetFile><onerrorspec/></traceSetFile>',
           _refused(13, _NO_ERR))
    yield ('onerrorspec-with-empty-err',
           '<traceSetFile><onerrorspec err="5"/><onerrorspec err=""/></traceSetFile>',
           _refused(13, _NO_ERR))
    yield 'onerrorspec-on-another-kind', '<trace><onerrorspec/></trace><exit/>', """
exit: 0
"""


def _exit_codes():
    """The attribute code, the number that it reads as, and the process's exit code."""
    rows = (('0', 0, 0), ('5', 5, -5), ('-5', -5, -5), ('%five%', 0, 0), ('five', 0, 0), ('', 0, 0),
            ('  +12 apples', 12, -12), ('256', 256, -256), ('2147483647', 2147483647, -2147483647),
            ('2147483648', 2147483647, -2147483647), ('-2147483648', -2147483648, -2147483648))
    for at, (code, number, exit_code) in enumerate(rows):
        yield f'{at:02}', _script(f'<assign var="five" value="5"/><exit code="{code}"/>'), f"""
exit: {exit_code}
trace some:
  Exit function called with exitcode {number}
  Stop executing
"""
    yield 'none', _script('<exit/>'), """
exit: 0
trace some:
  Exit function called with exitcode 0
"""


_EXPIRED = '  Patch exceeded expiration period'


def _dates():
    """Name, properties, and the trace lines of a patch that runs, or None when it has expired, with
    whether the default number of days was taken."""
    yield 'new', 'created=@NOW@', True, True
    yield 'within-90-days', 'created=@NOW-89d@', True, True
    yield 'beyond-90-days', 'created=@NOW-91d@', False, True
    yield 'zero-is-90-days', 'created=@NOW-91d@ expires=0', False, True
    yield 'junk-is-90-days', 'created=@NOW-89d@ expires=never', True, True
    yield 'within-own-days', 'created=@NOW-91d@ expires=92', True, False
    yield 'beyond-own-days', 'created=@NOW-3d@ expires=2', False, False
    yield 'digits-before-junk', 'created=@NOW-3d@ expires=4days', True, False
    yield 'negative-days', 'created=@NOW@ expires=-1', False, False
    yield 'from-the-future', 'created=@NOW+1d@ expires=10', False, False
    yield 'created-missing', '', False, True
    yield 'created-miscased', 'Created=@NOW@', False, True
    yield 'created-missing-but-many-days', 'expires=30000', True, False
    yield 'days-overflow-the-stored-time', 'created=@NOW@ expires=24856', True, False
    yield 'most-days', 'created=@NOW@ expires=2147483647', True, False
    yield 'days-saturate', 'created=@NOW@ expires=99999999999', True, False
    yield 'last-wins', 'created=5 expires=1 created=@NOW-3d@ expires=4', True, False
    yield 'created-64-bit', 'created=9223372036854775807', False, False
    yield 'type-miscased', 'patchType=Update created=@NOW-91d@', False, True


def _expiry():
    for name, properties, is_valid, is_default in _dates():
        elements = ''.join(map(_property, ['patchType=external', *properties.split()]))
        lines = _DEFAULT_DAYS if is_default else ''
        yield name, f'<p version="1.0"><header>{elements}</header><script/></p>', (
            _loaded(lines) if is_valid else
            _refused(1460, lines + _EXPIRED, stderr='Patch is no longer valid.'))
    update = '<property name="patchType" value="update"/>'
    yield ('update-never', f'<p version="1.0"><header>{update}</header><script/></p>', _loaded())
    earlier = ''.join(map(_property, ['patchType=external', 'created=@NOW+1d@']))
    yield ('last-type-wins', f'<p version="1.0"><header>{earlier}{update}</header><script/></p>',
           _loaded())
    yield ('command-before-expiry', '<p version="1.0"><header/><script><nope/></script></p>',
           _refused(13, "  Function 'nope' not found"))
    yield ('expiry-before-labels',
           '<p version="1.0"><header/><script><goto target="x"/></script></p>',
           _refused(1460, _DEFAULT_DAYS + _EXPIRED, stderr='Patch is no longer valid.'))
    yield ('no-header', '<p version="1.0"><property name="patchType" value="update"/><script/></p>',
           _refused(1460, _DEFAULT_DAYS + _EXPIRED, stderr='Patch is no longer valid.'))


def all_cases():
    scripts = [('version', _versions()), ('document', _documents()), ('metadata', _metadata()),
               ('command', _commands()),
               ('label', ((name, _script(body), text)
                          for name, body, text in _labels_and_handlers())),
               ('exit-code', _exit_codes()), ('expiry', _expiry())]
    for family, rows in scripts:
        for name, script, text in rows:
            yield expectations.Case(f'{family}/{name}', expectations.parse(text, name),
                                    script=script.encode())
