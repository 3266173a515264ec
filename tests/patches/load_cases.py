"""Cases in which a short script is loaded or refused, one run each, in tables."""

import pathlib
import xml.etree.ElementTree as ElementTree

import expectations

_SCHEMA = pathlib.Path(__file__).resolve().parents[2] / 'docs' / 'patch.xsd'
_XS = '{http://www.w3.org/2001/XMLSchema}'
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
    for version in ('1.0', '1', '+1.0', '  01.5 beta', '1,9', '1.'):
        yield version, f'<p version="{version}">{_HEADER}<script/></p>', _loaded(_DEFAULT_DAYS)
    for version in ('2.0', '0.9', '10.0', '-1.0', 'one', '.1', '4294967297.0'):
        yield version, f'<p version="{version}">{_HEADER}<script/></p>', _refused(
            1636, f'  Cannot continue... Expected version: 1.0, current version: {version}',
            is_reset_before=False)
    for name, attribute in (('missing', ''), ('empty', 'version=""'),
                            ('miscased', 'Version="1.0"')):
        yield name, f'<p {attribute}>{_HEADER}<script/></p>', _refused(
            1636, '  Version not found', is_reset_before=False)


def _documents():
    for reason, document in (
            ('Root not found', '<!-- nothing else -->'),
            ('Script node not found', f'<p version="1.0">{_HEADER}</p>'),
            ('Script node not found', f'<p version="1.0">{_HEADER}<Script/></p>'),
            ('Script node not found', f'<p version="1.0">{_HEADER}<x><script/></x></p>'),
            # It is looked for before the version.
            ('Script node not found', f'<p>{_HEADER}</p>')):
        yield reason, document, _refused(13, f'  {reason}', is_reset_before=False)
    # Any root and order will do, and the first of several counts.
    for name, document in (
            ('any root', f'<script version="1.0"><script/>{_HEADER}</script>'),
            ('the first', f'<p version="1.0">{_HEADER}<header/><script/><script><oops/></script></p>'),
            ('texts', f'<p version="1.0">{_HEADER}<script> text <!-- comment -->'
             '<![CDATA[<oops/>]]></script></p>')):
        yield name, document, _loaded(_DEFAULT_DAYS)


def _element(name, attributes):
    return f'<{name} ' + ' '.join(f'{key}="{value}"' for key, value in attributes.items()) + '/>'


def _script(body):
    return f'<p version="1.0">{_HEADER}<script>{body}</script></p>'


def _schema():
    """Each command of the published schema with its attributes, of which each has its type and
    whether it must be there. Those of a list of words have the words as their type."""
    commands = ElementTree.parse(_SCHEMA).getroot().find(f"{_XS}group[@name='Commands']/{_XS}choice")
    for command in commands.iter(f'{_XS}element'):
        attributes = {}
        for attribute in command.iter(f'{_XS}attribute'):
            words = [word.get('value') for word in attribute.iter(f'{_XS}enumeration')]
            attributes[attribute.get('name')] = (words or attribute.get('type'),
                                                 attribute.get('use') == 'required')
        if 'name' in command.attrib:
            yield command.get('name'), attributes


# These take no empty text for a number; others read it as 0.
_NUMBERS_ARE_THERE = ('processWait', 'serviceCreate', 'stringDelete', 'stringGet')
_INVALID = "Function '{}' has invalid parameters (attributes)"
_LOOPS = {'for': 'For function is invalid', 'xmlForEach': 'xmlForEach function is invalid',
          'jsonForEach': 'jsonForEach function is invalid'}
# The command that such a loop becomes is refused.
_INNER = {('jsonForEach', 'path'): _INVALID.format('jsonGetElement'),
          ('xmlForEach', 'xpath'): _INVALID.format('xmlGetElement')}


def _attributes():
    """For each command: each attribute that must be there missing, and empty where it can't be; and
    all commands, with everything empty that may be."""
    everything = ''
    for command, attributes in _schema():
        good, empties = {}, {}
        for key, (kind, is_required) in attributes.items():
            if not is_required and key != 'data':  # which may be a child as well
                continue
            good[key] = kind[0].replace('<', '&lt;') if isinstance(kind, list) else '1'
            is_there = kind == 'NonEmptyText' or isinstance(kind, list) or key == 'data' or (
                kind == 'xs:int' and command in _NUMBERS_ARE_THERE)
            empties[key] = good[key] if is_there else ''
        everything += _element(command, empties)
        reason = _LOOPS.get(command, _INVALID.format(command))
        for key, value in good.items():
            without = {k: v for k, v in good.items() if k != key}
            told = _refused(13, '  ' + _INNER.get((command, key), reason))
            yield f'{command}-without-{key}', _script(_element(command, without)), told
            if empties[key] and key != 'data':
                yield f'{command}-with-empty-{key}', _script(
                    _element(command, {**good, key: ''})), told
    yield 'all', _script('<exit/>' + everything), _ENDS_WITH_0


def _commands():
    for element in (
            '<goto Target="x"/>', '<test operator="!=" type="string" left="" right=""/>',
            '<test operator="&gt;" type="string" left="" right=""/>',
            '<test operator="=" type="string" left="" right=""/>',
            '<test operator="==" type="String" left="" right=""/>',
            '<test operator="==" type="int" left="" right=""/>',
            '<regWrite root="hkey_users" key="" value="" data="" type="REG_SZ"/>',
            '<regWrite root="HKEY_USERS" key="" value="" data="" type="REG_NONE"/>',
            # What the regular expression library refuses.
            '<assignToken var="v" value="" regexp="(" index="0"/>',
            '<assignToken var="v" value="" regexp="[z-a]" index="0"/>',
            '<dirCopyRec src="x" dest="x" include="[a"/>',
            '<dirCopyRec src="x" dest="x" exclude="*"/>'):
        yield element, _script(f'<nothing/>{element}'), _refused(
            13, '  ' + _INVALID.format(element[1:].split()[0]))
    for body, name in (
            ('<exit/><nope id="x"/>', 'nope'), ('<Exit/>', 'Exit'), ('<onTrue/>', 'onTrue'),
            ('<data/>', 'data'),
            # A handler inside a loop is a command of its body.
            ('<for var="p" value="a" delim=";"><onerror/></for>', 'onerror'),
            ('<traceSetFile><onsuccess><test type="string" operator="==" left="" right=""><onFalse>'
             '<nothing/><nope/></onFalse></test></onsuccess></traceSetFile>', 'nope')):
        yield f'unknown-{name}', _script(body), _refused(13, f"  Function '{name}' not found")


def _metadata():
    """What the header says of the patch; nothing in it stops the run at this point."""
    no_id = '  [ExtractPatchMetaData] Warning - attribute id not found...\n'
    no_type = '  [ExtractPatchMetaData] Warning - attribute patchType not found...\n'
    for properties, warnings, patch_type, ident in (
            ('id=a patchType=external tags=t', '', 'external', 'a'),
            ('id=a patchType=update id=b patchType=external', '', 'external', 'b'),
            ('ID=a PatchType=external', no_id + no_type, '', ''),
            ('id= patchType=', no_id + no_type, '', ''),
            ('id=a patchType=anything', '', 'anything', 'a'),
            ('patchType=external', no_id, 'external', ''), ('id=a', no_type, '', 'a')):
        yield properties, _dated('created=@NOW@ ' + properties), f"""
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
    for header in ('', '<Header/>', '<x><header><property name="id" value="a"/></header></x>'):
        yield 'no-header', f'<p version="1.0">{header}<script/></p>', """
exit: 1636
stderr: Patch is no longer valid.
trace header:
  [ExtractPatchMetaData] Error - no header found... | Running patch of type: , with id: *
"""


def _property(entry):
    return '<property name="{}" value="{}"/>'.format(*entry.split('='))


def _dated(properties, body=''):
    elements = ''.join(map(_property, properties.split()))
    return f'<p version="1.0"><header>{elements}</header><script>{body}</script></p>'


def _labels_and_handlers():
    no_err = ("  Handler 'onerrorspec' for function 'traceSetFile' does not have err attribute"
              ' or it is empty')
    for label, body in (
            ('there', '<exit/><goto target="there"/>'), ('x', '<exit/><onErrorGoTo target="x"/>'),
            # The first in order is told, case counts, and nothing is expanded.
            ('B', '<goto target="b"/><goto target="a"/><goto target="B"/><nothing id="a"/>'),
            ('there', '<nothing id="There"/><goto target="there"/>'),
            ('%x%', '<assign var="x" value="y"/><nothing id="y"/><goto target="%x%"/>'),
            # One on an ignored child, or on a loop, is lost.
            ('x', '<nothing><onsuccess><nothing id="x"/></onsuccess></nothing><goto target="x"/>'),
            ('x', '<for id="x" var="p" value="a" delim=";"/><goto target="x"/>')):
        yield 'missing', body, _refused(
            1636, f"{_DEFAULT_DAYS}  Label '{label}' is reffered, but not present")
    for body in ('<nothing id="x"/><trace id="x"/>',
                 '<goto target="x"/><nothing id="x"/><trace id="x"/>',
                 # A handler is compiled before its owner gets its label.
                 '<traceSetFile id="x"><onsuccess><nothing id="x"/></onsuccess></traceSetFile>'):
        yield 'twice', body, _refused(
            13, "  Label 'x' is used for two different function instances.")
    for body in ('<traceSetFile><onerrorspec/></traceSetFile>',
                 '<traceSetFile><onerrorspec err="5"/><onerrorspec err=""/></traceSetFile>'):
        yield 'onerrorspec', body, _refused(13, no_err)
    for body in ('<exit target="nowhere"/>', '<exit/><nothing id=""/><trace id=""/>',
                 '<trace><onerrorspec/></trace><exit/>'):
        yield 'good', body, _ENDS_WITH_0


def _exit_codes():
    """The attribute code, the number that it reads as, and the process's exit code."""
    for code, number, exit_code in (
            ('5', 5, -5), ('-5', -5, -5), ('%five%', 0, 0), ('', 0, 0), ('  +12 apples', 12, -12),
            ('256', 256, -256), ('2147483648', 2147483647, -2147483647),
            ('-2147483648', -2147483648, -2147483648)):
        yield code, _script(f'<assign var="five" value="5"/><exit code="{code}"/>'), (
            f'exit: {exit_code}\ntrace some: Exit function called with exitcode {number}\n')


_EXPIRED = '  Patch exceeded expiration period'
_FOREVER = '<property name="patchType" value="update"/>'


def _expiry():
    """Properties, whether a patch with these runs, and whether the default number of days was taken."""
    expired = 'Patch is no longer valid.'
    for properties, is_valid, is_default in (
            ('created=@NOW-89d@', True, True), ('created=@NOW-91d@', False, True),
            ('created=@NOW-91d@ expires=0', False, True),
            ('created=@NOW-89d@ expires=never', True, True),
            ('created=@NOW-91d@ expires=92', True, False),
            ('created=@NOW-3d@ expires=2', False, False),
            ('created=@NOW-3d@ expires=4days', True, False),
            ('created=@NOW@ expires=-1', False, False),
            ('created=@NOW+1d@ expires=10', False, False), ('Created=@NOW@', False, True),
            ('expires=30000', True, False), ('created=@NOW@ expires=24856', True, False),
            ('created=@NOW@ expires=99999999999', True, False),
            ('created=5 expires=1 created=@NOW-3d@ expires=4', True, False),
            ('created=9223372036854775807', False, False),
            ('patchType=Update created=@NOW-91d@', False, True)):
        lines = _DEFAULT_DAYS if is_default else ''
        yield properties, _dated('patchType=external ' + properties), (
            _loaded(lines) if is_valid else _refused(1460, lines + _EXPIRED, stderr=expired))
    # An update never does, by the last type; and the order of the refusals.
    yield 'update', _dated('patchType=update'), _loaded()
    yield 'last', _dated('patchType=external created=@NOW+1d@ patchType=update'), _loaded()
    yield 'command-first', _dated('', '<nope/>'), _refused(13, "  Function 'nope' not found")
    yield 'before-labels', _dated('', '<goto target="x"/>'), _refused(
        1460, _DEFAULT_DAYS + _EXPIRED, stderr=expired)
    yield 'no-header', f'<p version="1.0">{_FOREVER}<script/></p>', _refused(
        1460, _DEFAULT_DAYS + _EXPIRED, stderr=expired)


def all_cases():
    families = {'version': _versions(), 'document': _documents(), 'metadata': _metadata(),
                'attribute': _attributes(), 'command': _commands(), 'exit-code': _exit_codes(),
                'label': ((name, _script(body), text)
                          for name, body, text in _labels_and_handlers()),
                'expiry': _expiry()}
    for family, rows in families.items():
        for at, (name, script, text) in enumerate(rows):
            yield expectations.case(family, f'{at:02}-{name}', text, script=script.encode())
