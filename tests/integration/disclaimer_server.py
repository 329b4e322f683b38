"""disclaimer_server.py write|check DIR

write: from DIR/users-N.json and DIR/members-GID.json makes DIR/disclaimers-N.json, rules of every
kind, and DIR/questions for the filter. check: compares DIR/answers with the rules, judged here
without regular expressions, and writes some cases to DIR/explained.
"""
import functools
import json
import random
import sys
import urllib.parse

COMMAND, DIR = sys.argv[1:]
PUBLISHED = ['example.com', 'example.net', 'bücher.example', 'xn--bcher-kva.example', 'other.example']
LETTERS = 'aB*.@$/+?()[]{}|^"\'`%#&;~-_=!, '
RUN = f'touch {DIR}/pwned'
HOSTILE = [f'`{RUN}`@example.com', '@{[`' + RUN + '`]}@example.com', '${`' + RUN + '`}',
           f'(?{{system "{RUN}"}})', f'*/i || system("{RUN}") || $Sender =~ /', '*$/) || (1',
           ')) || ((1', '$Sender', '@Recipients', '$ENV{PATH}*', '%ENV*', '#*', '*}]>)"\'', '.*',
           '[a-z]*@example.com', '(*', '(alice|ben)@example.com', 'ben@', '*@']
PATTERNS = ['ben@example.com', 'BEN@Example.COM', '*@example.com', 'b*@*.com', '*', '*@bücher.example',
            'j*@*.example', 'jörg@*', '*@*.*.*', '**@example.com', "o'brien@example.com",
            '*+*@example.com'] + HOSTILE
NUMBERS = {'uid': (1001, '1002', 1003, 1005), 'gid': (2001, 2002, '2004', 2005)}
ADDRESSES = ['', 'ben', '@example.com', 'ben@exampleXcom', 'benny@example.com', 'a@b@example.com',
             'joe@other.com', 'obrien@example.com', 'e l@example.com', 'JÖRG@example.com', '/usr/bin',
             '$Sender', '`id`@example.com', 'abxb@example.com'] + HOSTILE[:4]
DOMAINS = ['example.com', 'EXAMPLE.Net', 'xn--bcher-kva.example', 'other.example',
           'elsewhere.example', 'sub.example.com', 'example.com.evil.example']


def load(name):
    with open(f'{DIR}/{name}', encoding='utf-8') as file:
        return json.load(file)


def save(name, text):
    with open(f'{DIR}/{name}', 'w', encoding='utf-8') as file:
        file.write(text)


def lower(text):
    return ''.join(c.lower() if c.isascii() else c for c in text)


ALIASES = {idx: {user['uid']: {lower(a['alias']) for a in user['aliases']}
                 for user in load(f'users-{idx}.json')} for idx in (1, 2)}
# The members' aliases of every domain that has a rule for the group: both have one.
OF_GROUP = {gid: {alias for user in load(f'members-{gid}.json') for idx in (1, 2)
                  for alias in ALIASES[idx].get(user['uid'], ())} for gid in map(int, NUMBERS['gid'])}


@functools.lru_cache(None)
def fits(pattern, text):
    """Whether `text` is `pattern` with every "*" replaced by some text; ASCII case is ignored."""
    local, at, domain = pattern.rpartition('@')
    domain = '.'.join(l if l.isascii() else l.encode('idna').decode() for l in domain.split('.'))
    first, *rest = lower(local + at + domain).split('*')
    text = lower(text)
    if not rest or not text.startswith(first):
        return text == first
    text = text[len(first):]
    for piece in rest[:-1]:
        before, found, text = text.partition(piece) if piece else ('', True, text)
        if not found:
            return False
    return text.endswith(rest[-1])


def holds(idx, rule, mail):
    local, _, domain = mail[rule['target']].rpartition('@')
    if rule['pattern_type'] == 'email':
        return fits(rule['pattern'], mail[rule['target']])
    names = OF_GROUP if rule['pattern_type'] == 'gid' else ALIASES[idx]
    return lower(domain) in PUBLISHED and lower(local) in names[int(rule['pattern'])]


def applies(idx, disclaimer, sender, recipient):
    mail = {'sender': sender, 'recipient': recipient}
    combine = all if disclaimer['op'] == 'and' else any
    local = lower(recipient.rpartition('@')[2]) in PUBLISHED
    return (not (disclaimer['disabled_for_local_recipient'] and local)
            and combine(holds(idx, rule, mail) for rule in disclaimer['match_rule_list'])
            and not any(holds(idx, rule, mail) for rule in disclaimer['exception_rule_list']))


def random_text(dice, longest):
    return ''.join(dice.choices(LETTERS, k=dice.randint(1, longest)))


def disclaimers(idx, dice):
    values = [('email', pattern) for pattern in PATTERNS + [random_text(dice, 7) for _ in range(30)]]
    values += [(kind, number) for kind, numbers in NUMBERS.items() for number in numbers]
    rules = [{'target': target, 'pattern_type': kind, 'pattern': value}
             for target in ('sender', 'recipient') for kind, value in values]
    lists = [([rule], []) for rule in rules]
    lists += [(dice.choices(rules, k=dice.randint(1, 3)), dice.choices(rules, k=dice.randint(0, 2)))
              for _ in range(150)]
    return [{'id': place, 'name': f'disclaimer {place}', 'enabled': place % 17 != 5,
             'op': dice.choice(('and', 'or')), 'disabled_for_local_recipient': place % 11 == 3,
             'match_rule_list': matches, 'exception_rule_list': exceptions,
             'content_txt': f'{idx}/{place}', 'content_html': ''}
            for place, (matches, exceptions) in enumerate(lists)]


def write(dice):
    for idx in (1, 2):
        save(f'disclaimers-{idx}.json', json.dumps(disclaimers(idx, dice), ensure_ascii=False))
    names = sorted({alias for users in ALIASES.values() for found in users.values() for alias in found})
    known = ADDRESSES + [f'{name}@example.com' for name in names]
    known += [f'{dice.choice(names).upper()}@{domain}' for domain in DOMAINS for _ in range(2)]
    known += [f'{name}@bücher.example' for name in names[:2]] + [random_text(dice, 5) for _ in range(10)]
    pairs = dice.sample([(sender, recipient) for sender in known for recipient in known], 2000)
    save('pairs.json', json.dumps(pairs))
    save('questions', ''.join(f'applies {sender} {recipient}\n' for sender, recipient in (
        [urllib.parse.quote(f'<{text}>', safe='') for text in pair] for pair in pairs)))


def check(dice):
    judged = [(idx, disclaimer) for idx in (1, 2) for disclaimer in load(f'disclaimers-{idx}.json')]
    enabled = [pair for pair in judged if pair[1]['enabled']]
    pairs = load('pairs.json')
    with open(f'{DIR}/answers', encoding='ascii') as file:
        answers = file.read().splitlines()
    if len(answers) != len(pairs):
        sys.exit(f'{len(answers)} answers to {len(pairs)} questions: {answers[:3]}')
    wrong = positive = 0
    for pair, answer in zip(pairs, answers):
        want = ''.join('01'[applies(*one, *pair)] for one in enabled)
        positive += want.count('1')
        if answer != f'ok {want}':
            wrong += 1
            differ = [one for one, got, bit in zip(enabled, answer[3:], want) if got != bit]
            print(f'{pair}: {len(differ)} differ, first {differ[:1]} ({answer[:20]})' * (wrong < 6))
    total = len(pairs) * len(enabled)
    print(f'{len(pairs)} questions about {len(enabled)} disclaimers, {positive} of {total} apply, '
          f'{wrong} questions wrong')
    if wrong or not total / 50 < positive < total / 2:
        sys.exit('wrong answers, or answers that say too little')
    save('explained', ''.join(
        f'{sender}\t{recipient}\t' + ''.join(str(int(one['enabled'] and applies(1, one, sender, recipient)))
                                             for idx, one in judged if idx == 1) + '\n'
        for sender, recipient in dice.sample([pair for pair in pairs if all(pair)], 3)))


{'write': write, 'check': check}[COMMAND](random.Random(11))
