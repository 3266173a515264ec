"""Documents of many kinds, which a script opens and saves. What came of them is read by Expat, which the
product doesn't use: it has all that was there, but for the blanks around texts and in them."""

import re
import xml.parsers.expat

import script_cases

_WORDS = '<r a="1">t<!-- c --><e/></r>'
_LATIN = '<?xml version="1.0" encoding="iso-8859-1"?><r>{}</r>'
_NBSP = '<?xml version="1.0"?>{}<html xml:lang="de"><p>a&nbsp;b &amp; <b>c</b> d<br />&#160;</p></html>'
_PUBLIC = ('<!DOCTYPE html PUBLIC "-//W3C//DTD XHTML 1.0 Strict//EN"\n'
           ' "http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd">')
_SUBSET = """<!DOCTYPE book [
  <!-- "quoted ]> -->  <?keep ]> ?>
  <!ENTITY e "v &#38;#38; <i>w</i> > ]"> <!ENTITY é 'n'>
  <!ELEMENT book ANY> <!ATTLIST book id CDATA "]>" lang CDATA 'de'>
]>"""
_PROJECT = ('<?xml version="1.0" encoding="utf-8"?>\r\n<Project DefaultTargets="Build" xmlns="urn:p">\r\n'
            '  <ItemGroup Condition="\'$(A)|$(B)\'==\'x|y\' And &quot;1&quot;&lt;2">\r\n'
            '    <ClCompile Include="a\\b.cpp" />\r\n  </ItemGroup>\r\n</Project>\r\n')

# By name; a text is in UTF-8. The first ones come back.
WHOLE = {
    'plain': _WORDS,
    'empty': '<r/>',
    'subset': f'<?xml version="1.0"?>{_SUBSET}<book>a &e;&é;<c k="&é; x"/>&e;</book>',
    'parameters': '<!DOCTYPE r [<!ENTITY % p SYSTEM "p.ent"> %p;]><r>&from-p;</r>',
    'xhtml': _NBSP.format(_PUBLIC),
    'plist': '<!DOCTYPE plist SYSTEM "p.dtd">\n<plist><dict><key>k</key><true/></dict></plist>',
    'instructions': '<?xml version="1.0" standalone="yes"?>\n<?xml-stylesheet href="a>b"  type=\'x\'?>'
                    '<?php echo 1 > 0; ?><r>a<?in  side?>b<?e?></r><?end?><!-- e -->',
    'svg': '<svg xmlns="urn:s" xmlns:x="urn:x"><style><![CDATA[ a > b { } ]]></style>'
           '<x:use x:href="#&quot;i&quot;"/><text>A<tspan dy="1">B</tspan>C</text></svg>',
    'config': '<!-- 1 --><!-- <2> & --><c>\n<!-- 3 --><add key="a" value="x;y=&apos;z&apos;"/><!----></c>'
              '<!-- 4 -->\n',
    'project': '\ufeff' + _PROJECT,
    'marked 16': ('\ufeff' + _PROJECT.replace('utf-8', 'utf-16')).encode('utf-16-le'),
    'marked 16 big': ('\ufeff' + _PROJECT.replace('utf-8', 'utf-16') + '<!-- é😀 -->').encode('utf-16-be'),
    'sections': '<r>a<![CDATA[]]]]><![CDATA[> <&> &e;]]>b<![CDATA[]]><c><![CDATA[ ]]></c></r>',
    'blanks': '<r xml:space="preserve"> a  b <c>&#10;</c><d>&#32;&#9;x&#13;</d><e>\ufeffy</e></r>',
    'characters': '<r a="&#x1F600;&#65;\ufeff&#9;é😀">&#x1F600;é😀&#xFEFF;ÿ\x7f\u0085\u2028&amp;amp;&#38;lt;</r>',
    'names': '<größe:a-b._1 xmlns:größe="u" ж.1="2"/>',
    'latin': _LATIN.format('ASCII'),
    'broad': '<r ' + ' '.join(f'a{i}="v"' for i in range(1000)) + '/>',
    'deep': '<d>' * 1000 + 'x' + '</d>' * 1000,
    'padded': _WORDS.encode() + bytes(4),
}
# These can't be read, or not all of them: no open, and if there is one, no save.
REFUSED = {
    'text behind': _WORDS + ' text', 'text before': 'text ' + _WORDS, 'two roots': '<a/><b/>',
    'bare': '<r>a & b</r>', 'bare in value': '<r a="x&y"/>', 'unknown': '<r>&nbsp;</r>',
    'undeclared': f'{_SUBSET}<book>&f;</book>', 'unclosed comment': '<r/><!-- c',
    'unclosed comment inside': '<r><!-- c</r>', 'unclosed section': '<r><![CDATA[x</r>',
    'unclosed instruction': '<r/><?i', 'unclosed type': '<!DOCTYPE r [<!ENTITY e "v">', 'root': '<!-- c -->',
    'declared twice': '<?xml version="1.0"?><?xml version="1.0"?><r/>', 'declared late': '<r/><?XML a?>',
    'type behind': '<r/><!DOCTYPE r>', 'unmarked 16': _WORDS.encode('utf-16-le'),
    'unmarked 16 big': _WORDS.encode('utf-16-be'), 'behind zero': _WORDS.encode() + b'\0<!-- -->',
    'half': '<r>&#xD83D;</r>', 'no character': '<r>&#0;</r>', 'too high': '<r>&#99999999999;</r>',
    'noncharacter': '<r>\uffff</r>', 'form feed': '<r>\f</r>', 'latin é': _LATIN.format('é').encode('latin-1'),
    'half in 16': b'\xff\xfe' + '<r>'.encode('utf-16-le') + b'\0\xd8' + '</r>'.encode('utf-16-le'),
    'many attributes': '<r ' + ' '.join(f'a{i}="v"' for i in range(1001)) + '/>',
    'section outside': '<![CDATA[x]]><r/>', 'unquoted': '<r a=b/>', 'nothing': '',
}


def _bytes(document):
    return document.encode() if isinstance(document, str) else document.rstrip(b'\0')


def _content(document, encoding=None):
    """What Expat finds in a document, in order."""
    found, words = [], []
    parser = xml.parsers.expat.ParserCreate(encoding)
    parser.ordered_attributes = True

    def add(*what):
        text = ' '.join(re.split('[ \t\n\r]+', ''.join(words)))
        if text.strip(' '):
            found.append(text.strip(' '))
        words.clear()
        found.append(what)

    def cdata(is_start):
        # Blanks count in a section, and its end must not join what stands beside it.
        add('section', is_start)

    parser.CharacterDataHandler = words.append
    parser.StartElementHandler = lambda name, pairs: add(name, [re.sub(r'\s', ' ', x) for x in pairs])
    parser.EndElementHandler = lambda name: add('/', name)
    parser.CommentHandler = lambda text: add('comment', text)
    parser.ProcessingInstructionHandler = lambda *what: add('instruction', *what)
    parser.StartCdataSectionHandler = lambda: cdata(True)
    parser.EndCdataSectionHandler = lambda: cdata(False)
    parser.StartDoctypeDeclHandler = lambda *what: add('type', *what)
    parser.EntityDeclHandler = lambda *what: add('entity', *what)
    parser.SkippedEntityHandler = lambda *what: add('skipped', *what)
    parser.XmlDeclHandler = lambda version, _, alone: add('declaration', version, alone)
    try:
        parser.Parse(document, True)
    except xml.parsers.expat.ExpatError as error:
        return str(error)
    return found


def _examine(folder):
    """What is wrong with the documents that a run left."""
    for name, document in WHOLE.items():
        once, twice = ((folder / f'{name}.{end}').read_bytes() for end in ('saved', 'again'))
        before, after = _content(_bytes(document)), _content(once, 'utf-8')
        if isinstance(before, str) or before != after:
            yield f'{name}: {before} came back as {after}: {once!r}'
        if once != twice:
            yield f'{name}: saved twice, it is {twice!r}'
    for name, document in REFUSED.items():
        if isinstance(_content(_bytes(document)), list) and not name.startswith(('latin', 'unmarked', 'many')):
            yield f'{name}: is well-formed'
        if (folder / f'{name}.saved').read_bytes() != b'old':
            yield f'{name}: was saved'


def _prepare(patch):
    for name, document in (WHOLE | REFUSED).items():
        content = document.encode() if isinstance(document, str) else document
        (patch.parent / f'{name}.xml').write_bytes(content)
    for name in REFUSED:
        (patch.parent / f'{name}.saved').write_text('old')


def all_cases():
    opened = {'two roots', 'root', 'latin é', 'half in 16'}
    rows = [f'  - {name}.xml ; {name}.saved ; success ; success' for name in WHOLE]
    rows += [f'  - {name}.saved ; {name}.again ; success ; success' for name in WHOLE]
    rows += [f'  - {name}.xml ; {name}.saved ; ' + ('success ; 13' if name in opened else '2 ; 6')
             for name in REFUSED]
    each = ('  <xmlOpen path="@DIR@\\{0}" handle="d"/> => {2}\n'
            '  <xmlSave path="@DIR@\\{1}" handle="d"/> => {3}\n  <xmlClose handle="d"/>')
    case = script_cases.case('documents/come-back', f'each:\n{each}\nscript:\n' + '\n'.join(rows), __file__)
    case.prepare = _prepare
    case.examine = _examine
    yield case
