"""disclaimer_server.py write|check DIR

write: from DIR/users-N.json, DIR/passwd and DIR/group makes DIR/disclaimers-N.json, rules of every
kind, and DIR/questions for the filter. check: compares DIR/answers with the rules, judged here
without regular expressions, and writes some cases to DIR/explained.
"""
import json
import random
import sys
import urllib.parse

DIR = sys.argv[2]
PUBLISHED = ['example.com', 'example.net', 'bücher.example', 'xn--bcher-kva.example',
             'other.example']
LETTERS = 'aB*.@$/+?()[]{}|^"\'`%#&;~-_=!, '


def load(name):
    with open(f'{DIR}/{name}', encoding='utf-8') as file:
        return json.load(file)


def lower(text):
    return ''.join(c.lower() if c.isascii() else c for c in text)


def punycode(pattern):
    local, at, domain = pattern.rpartition('@')
    labels = domain.split('.')
    return local + at + '.'.join(
        l if l.isascii() else l.encode('idna').decode() for l in labels)


def fits(pattern, text):
    """Whether `text` is `pattern` with every "*" replaced by some text; ASCII case is ignored."""
    first, *rest = lower(punycode(pattern)).split('*')
    text = lower(text)
    if not rest:
        return text == first
    if not text.startswith(first):
        return False
    text = text[len(first):]
    *middle, last = rest
    for piece in middle:
        at = text.find(piece)
        if at < 0:
            return False
        text = text[at + len(piece):]
    return text.endswith(last)


class Model:
    def __init__(self):
        self.aliases = {}  # domain index -> uid -> lower-case aliases
        for idx in (1, 2):
            self.aliases[idx] = {user['uid']: {lower(a['alias']) for a in user['aliases']}
                                 for user in load(f'users-{idx}.json')}
        people = {}
        primary = {}
        with open(f'{DIR}/passwd', encoding='utf-8') as file:
            for line in file:
                name, _, uid, gid = line.split(':')[:4]
                people[name] = int(uid)
                primary.setdefault(int(gid), set()).add(int(uid))
        self.members = {}
        with open(f'{DIR}/group', encoding='utf-8') as file:
            for line in file:
                _, _, gid, names = line.rstrip('\n').split(':')
                self.members[int(gid)] = primary.get(int(gid), set()) | {
                    people[name] for name in names.split(',') if name}

    def of_group(self, gid):
        # The members' aliases of every domain that has a rule for the group: both have one.
        return {alias for idx in (1, 2) for uid in self.members[gid]
                for alias in self.aliases[idx].get(uid, ())}

    def holds(self, idx, rule, sender, recipient):
        address = sender if rule['target'] == 'sender' else recipient
        local, _, domain = address.rpartition('@')
        if rule['pattern_type'] == 'email':
            return fits(rule['pattern'], address)
        if lower(domain) not in PUBLISHED:
            return False
        number = int(rule['pattern'])
        if rule['pattern_type'] == 'uid':
            return lower(local) in self.aliases[idx][number]
        return lower(local) in self.of_group(number)

    def applies(self, idx, disclaimer, sender, recipient):
        if (disclaimer.get('disabled_for_local_recipient')
                and lower(recipient.rpartition('@')[2]) in PUBLISHED):
            return False
        judged = [self.holds(idx, rule, sender, recipient)
                  for rule in disclaimer['match_rule_list']]
        matched = all(judged) if disclaimer['op'] == 'and' else any(judged)
        return matched and not any(self.holds(idx, rule, sender, recipient)
                                   for rule in disclaimer['exception_rule_list'])


def rule(target, kind, pattern):
    return {'target': target, 'pattern_type': kind, 'pattern': pattern}


def hostile_patterns():
    run = f'touch {DIR}/pwned'
    return [f'`{run}`@example.com', '@{[`' + run + '`]}@example.com', '${`' + run + '`}',
            f'(?{{system "{run}"}})', f'*/i || system("{run}") || $Sender =~ /',
            '*$/) || (1', ')) || ((1', '$Sender', '@Recipients', '$ENV{PATH}*', '%ENV*', '#*',
            '*}]>)"\'', '.*', '[a-z]*@example.com', '(*', '(alice|ben)@example.com', 'ben@', '*@']


def disclaimers(idx, dice):
    kinds = [rule(target, 'email', pattern) for target in ('sender', 'recipient')
             for pattern in ['ben@example.com', 'BEN@Example.COM', '*@example.com', 'b*@*.com', '*',
                             '*@bücher.example', 'j*@*.example', 'jörg@*', '*@*.*.*', '**@example.com',
                             "o'brien@example.com", '*+*@example.com'] + hostile_patterns()]
    kinds += [rule(target, kind, number) for target in ('sender', 'recipient')
              for kind, numbers in (('uid', (1001, '1002', 1003, 1005)),
                                    ('gid', (2001, 2002, '2004', 2005))) for number in numbers]
    for _ in range(60):
        pattern = ''.join(dice.choice(LETTERS) for _ in range(dice.randint(1, 7)))
        kinds.append(rule(dice.choice(('sender', 'recipient')), 'email', pattern))
    lists = [([kind], []) for kind in kinds]
    lists += [(dice.choices(kinds, k=dice.randint(1, 3)), dice.choices(kinds, k=dice.randint(0, 2)))
              for _ in range(150)]
    return [{'id': place, 'name': f'disclaimer {place}', 'enabled': place % 17 != 5,
             'op': dice.choice(('and', 'or')), 'disabled_for_local_recipient': place % 11 == 3,
             'match_rule_list': matches, 'exception_rule_list': exceptions,
             'content_txt': f'{idx}/{place}', 'content_html': ''}
            for place, (matches, exceptions) in enumerate(lists)]


def addresses(model, dice):
    domains = ['example.com', 'EXAMPLE.Net', 'xn--bcher-kva.example', 'other.example',
               'elsewhere.example', 'sub.example.com', 'example.com.evil.example']
    names = sorted({alias for users in model.aliases.values() for aliases in users.values()
                    for alias in aliases})
    found = [f'{name}@example.com' for name in names]
    found += [f'{dice.choice(names).upper()}@{domain}' for domain in domains for _ in range(2)]
    found += [f'{name}@bücher.example' for name in names[:2]]
    found += ['', 'ben', '@example.com', 'ben@exampleXcom', 'benny@example.com', 'a@b@example.com',
              'joe@other.com', 'obrien@example.com', 'e l@example.com', 'JÖRG@example.com',
              '/usr/bin', '$Sender', '`id`@example.com', 'abxb@example.com']
    found += hostile_patterns()[:4]
    found += [''.join(dice.choice(LETTERS) for _ in range(dice.randint(1, 5))) for _ in range(10)]
    return found


def generated(lists):
    """The disclaimers that have a place in the answers, in order."""
    return [(idx, disclaimer) for idx in (1, 2) for disclaimer in lists[idx]
            if disclaimer['enabled']]


def write():
    dice = random.Random(11)
    model = Model()
    for idx in (1, 2):
        with open(f'{DIR}/disclaimers-{idx}.json', 'w', encoding='utf-8') as file:
            json.dump(disclaimers(idx, dice), file, ensure_ascii=False)
    known = addresses(model, dice)
    pairs = dice.sample([(sender, recipient) for sender in known for recipient in known], 2000)
    with open(f'{DIR}/pairs.json', 'w', encoding='utf-8') as file:
        json.dump(pairs, file)
    quote = lambda text: urllib.parse.quote(f'<{text}>'.encode(), safe='')
    with open(f'{DIR}/questions', 'w', encoding='ascii') as file:
        for sender, recipient in pairs:
            file.write(f'applies {quote(sender)} {quote(recipient)}\n')


def check():
    model = Model()
    lists = {idx: load(f'disclaimers-{idx}.json') for idx in (1, 2)}
    judged = generated(lists)
    pairs = load('pairs.json')
    with open(f'{DIR}/answers', encoding='ascii') as file:
        answers = file.read().splitlines()
    if len(answers) != len(pairs):
        sys.exit(f'{len(answers)} answers to {len(pairs)} questions: {answers[:3]}')
    wrong = positive = 0
    for (sender, recipient), answer in zip(pairs, answers):
        want = ''.join('01'[model.applies(idx, disclaimer, sender, recipient)]
                       for idx, disclaimer in judged)
        positive += want.count('1')
        if answer == f'ok {want}':
            continue
        wrong += 1
        got = answer[3:]
        differ = [judged[i] for i in range(len(want)) if got[i:i + 1] != want[i]]
        if wrong <= 5:
            print(f'{sender!r} to {recipient!r}: {len(differ)} differ, first', *differ[:1])
    total = len(pairs) * len(judged)
    print(f'{len(pairs)} questions about {len(judged)} disclaimers, {positive} of {total} apply, '
          f'{wrong} questions wrong')
    if wrong or not total / 50 < positive < total / 2:
        sys.exit('wrong answers, or answers that say too little')
    dice = random.Random(3)
    with open(f'{DIR}/explained', 'w', encoding='utf-8') as file:
        for sender, recipient in dice.sample([p for p in pairs if p[0] and p[1]], 3):
            digits = ''.join(str(int(d['enabled'] and model.applies(1, d, sender, recipient)))
                             for d in lists[1])
            file.write(f'{sender}\t{recipient}\t{digits}\n')


{'write': write, 'check': check}[sys.argv[1]]()
