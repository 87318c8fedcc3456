# Calls every built-in function for a real result. Differences go to standard error, and their number is the
# process's exit code; the last words tell that the script came to its end. `sys_exit` comes last of all.
class builtins_all.Base:
def greet():
    return 'hello'

class builtins_all.Derived:
import builtins_all.Base
def __new__(self):
    return builtins_all.Base()

class startup_custom:
import builtins_all.Derived
import ipe.tokenizer
import ipe.re

def check(name, got, expected):
    if repr(got) <> repr(expected):
        global_execute('inc', 'failures')
        messagebox(name + ': ' + repr(got) + ' instead of ' + repr(expected), 'builtins')

def positive(name, value):
    if value <= 0:
        global_execute('inc', 'failures')
        messagebox(name + ': ' + repr(value) + ' is not above 0', 'builtins')

def unexpected(name):
    global_execute('inc', 'failures')
    messagebox(name + ' raised nothing', 'builtins')

global_set('failures', 0)

# --- Text and conversion.
check('chr', chr(8364), '\u20ac')
check('ord', ord('A'), 65)
check('len', len([1, 2, 3]), 3)
check('long', long('42x'), 42)
check('float', float('2.5') * 2, 5.0)
check('str', str([1, 'a']), '[1, "a"]')
check('repr', repr({'a': True}, json=1), '{"a":true}')
check('repr packed', eval(repr([1, (2, None)], zlib=1), zlib=1), [1, (2, None)])
check('eval', eval('[1, -2.5, None]'), [1, -2.5, None])
check('type', type({}), 'DictType')
check('list', list('ab'), ['a', 'b'])
check('tuple', tuple([1, 2]), (1, 2))
check('range', range(1, 10, 4), [1, 5, 9])
check('abs', abs(-7), 7)
check('bits', bits(10), [2, 8])
check('byteswap_U32', byteswap_U32(16909060), 67305985)
check('sqrt', sqrt(144), 12.0)
check('lower', lower('ABC'), 'abc')
check('upper', upper('abc'), 'ABC')
check('split', split('a,b,c', ','), ['a', 'b', 'c'])
check('join', join(['a', 1], '-'), 'a-1')
check('find', find('hello', 'l'), 2)
check('wildmatch', wildmatch('*.TXT', 'readme.txt'), True)
check('translate', translate('\[greeting,hello] you'), 'hello you')
check('metaphone', metaphone('Knight'), 'NT')
check('pyxparser', pyxparser("<a b='1'>x</a>"), ['(a', 'Ab 1', '-x', ')a'])
check('md5', md5('abc'), '900150983cd24fb0d6963f7d28e17f72')
check('sha1', sha1('abc'), 'a9993e364706816aba3e25717850c26c9cd0d89d')
check('uudecode', uudecode('0V%T'), 'Cat')
check('base64_encode', base64_encode('foobar'), 'Zm9vYmFy')
check('base64_decode', base64_decode('Zm9vYmFy'), 'foobar')
check('url_encode', url_encode('a b&c'), 'a%20b%26c')
check('url_decode', url_decode('a%20b+c'), 'a b c')
check('rsa', rsa('d', rsa('e', 'A', '11', 'ca1'), 'ac1', 'ca1'), 'A')
check('unicode_sanitize', unicode_sanitize('\xc3('), '\xf4\x8f\xbf\xb02C3(')
check('unicode_utf8', unicode_utf8('\u20ac'), [226, 130, 172])
check('unicode_utf16', unicode_utf16('\ud83d\ude00'), [55357, 56832])
check('unicode_utf32', unicode_utf32('\ud83d\ude00'), [128512])
check('unicode_native', unicode_native('abc'), 'abc')
check('unicode_flags', unicode_flags(), 0)
check('uep', udp(uep('a?b/c ')), 'a?b/c ')
check('udp', udp(5), 5)
check('xep', xep('<a>'), '&lt;a&gt;')
check('xdp', xdp('&lt;a&#62;'), '<a>')
check('objectstrip', objectstrip([1, check, 'x']), [1, 'x'])

# --- Time.
now = maketime('20240229123456')
check('maketime', maketime((2024, 2, 29, 12, 34, 56)), now)
check('localtime', localtime(now), (2024, 2, 29, 12, 34, 56))
check('strftime', strftime(now, '%Y/%m/%d'), '2024/02/29')
check('weekday', weekday(2000, 1, 1), 6)
positive('timer', timer(timer() - 1000000000) - 0.5)
pause = timeout()
pause.sleep(1)

# --- System.
positive('threadid', threadid())
system_gc()
positive('hostos', len(hostos('name')))
check('drive_list', type(drive_list()), 'ListType')
space = drive_size('/')
positive('drive_size', space['capacity'] - space['available'] + 1)
check('rchoice', rchoice(['only']), 'only')
check('rtoken8', len(rtoken8()), 8)
_system('setlanguage', 1031)
check('_system', _system('getlanguage'), 1031)
check('localeinfo', localeinfo('SENGLANGUAGE'), 'German')
_system('setlanguage', 0)
positive('fs', len(fs('pwd')))
try:
    open('/no/such/file')
    unexpected('open')
except IOError:
    pass

# --- Objects.
thing = builtins_all.Derived()
check('super', super(thing).greet(), 'hello')
setattr(thing, 'colour', 'red')
check('getattr', getattr(thing, 'colour'), 'red')
delattr(thing, 'colour')
check('delattr', getattr(thing, 'colour', 'none'), 'none')
original = [1]
copied = clone(original)
copied.append(2)
check('clone', original, [1])
check('lang', lang('any'), None)
check('tag', tag(), None)
positive('smart_inspect', smart_inspect('get').memory()['resident'])

# --- Stores.
global_set('a', [1, 2])
check('global_get', global_get('a'), [1, 2])
global_delete('a')
check('global_delete', global_get('a', 0), 0)
check('global_execute', global_execute('inc', 'n'), 1)
thread_set('a', 'mine')
check('thread_get', thread_get('a'), 'mine')
check('all', get_value_from_shared_storage_on_all_passports('a'), ['mine'])
thread_set('job', {'id': 'j1'})
set_value_into_shared_storage_where('job', 'id', 'j1', 'mark', 5)
check('where', thread_get('mark'), 5)
thread_delete('a')
check('thread_delete', thread_get('a', None), None)
check('thread_execute', thread_execute('dict_item_add', 'd', 'k', 3), 3)
global_qpush('q', 'first')
check('global_qempty', global_qempty('q'), 1)
check('global_qpop', global_qpop('q'), 'first')

# --- Interpreter.
check('interpreter statement', interpreter('statement')[0], 'check')
check('interpreter parse', interpreter('parse', 'class made.Up:\nx = 1\n'), ['made.Up'])
check('interpreter modules', interpreter('modules', 'made'), ['Up'])
check('interpreter module_get', type(interpreter('module_get', 'made.Up')), 'ModuleSourceType')
check('interpreter module_set', interpreter('module_set', 'made.Up', 1), None)
check('interpreter global', interpreter('global')['n'], 1)
interpreter('global_set', 'colour', 'blue')
check('interpreter global_set', global_get('colour'), 'blue')
check('interpreter memory_pack', interpreter('memory_pack'), None)
check('interpreter priority', interpreter('priority', 0), None)
check('interpreter builtin', type(interpreter('builtin')), 'IPE_ModuleBuitin')
check('interpreter profile', interpreter('profile', 'disable'), None)
check('interpreter get_coverage', type(interpreter('get_coverage')), 'DictType')
check('interpreter trace', interpreter('trace', 'disable'), None)
check('interpreter thread_summary', interpreter('thread_summary')['maximum'], 256)
check('interpreter asm_int_3', interpreter('asm_int_3'), None)
caller = interpreter('get_caller')
check('interpreter get_caller', caller['statement'], "caller = interpreter ( 'get_caller' )")
check('interpreter callstack', interpreter('callstack')[0]['file'], caller['file'])
try:
    interpreter('load', '/no/such/file.py')
    unexpected('interpreter load')
except IOError:
    pass

# --- The tokenizer and regular expressions as modules.
words = ipe.tokenizer.create()
words.assign("size >= 10 'text'")
check('token', words.token(), 'size')
check('next', words.next(), '>=')
words.back()
check('back', words.next(), '>=')
check('number', words.next(), 10)
check('string', words.next(), 'text')
check('tokens', words.tokens(), 'text')
check('end', words.next(), '[EOL]')
pattern = ipe.re.compile('(a+)(B)', PCRE_CASELESS=0)
check('search', pattern.search('xaab'), 1)
check('findall', pattern.findall('xaab'), ['aab', 'aa', 'b'])
check('inverted', ipe.re.compile('\{N}abc').search('xyz'), 1)

messagebox('every function called', 'builtins')
global_set('__rc', global_get('failures'))
sys_exit()
