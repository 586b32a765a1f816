'use strict';
(() => {
  const byId = (id) => document.getElementById(id);
  const plural = (n, one, many) => `${n.toLocaleString('en')} ${n === 1 ? one : many}`;

  // Texts of files stand in the data byte by byte, a character each, and what is typed is taken apart likewise.
  const bytesOf = (text) => String.fromCharCode(...new TextEncoder().encode(text));
  const escaped = (text, unseen) => text.replace(unseen, (c) => `\\x${c.charCodeAt(0).toString(16).toUpperCase().padStart(2, '0')}`);
  const shown = (bytes) => {
    try {
      const text = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true }).decode(Uint8Array.from(bytes, (c) => c.charCodeAt(0)));
      return text.replace(/[\p{Cc}\p{Cf}\p{Zl}\p{Zp}]/gu, (c) => `\\u{${c.codePointAt(0).toString(16).toUpperCase()}}`);
    } catch {
      return escaped(bytes, /[^ -~]/g);
    }
  };

  // A star at the end matches anything, nothing too; a star before it needs a byte for what follows. The first place
  // that fits what stands between two stars leaves the most for the rest, so that only the last star is tried again.
  const wildmatch = (pattern, host) => {
    let p = 0, h = 0, star = -1, from = 0;
    for (;;) {
      while (p < pattern.length && h < host.length && pattern[p] === host[h] && pattern[p] !== '*') {
        p++;
        h++;
      }
      if (pattern[p] === '*') {
        if (++p === pattern.length) return true;
        if (h === host.length) return false;
        star = p;
        from = h;
      } else if (p === pattern.length && h === host.length) {
        return true;
      } else {
        if (star < 0 || ++from >= host.length) return false;
        p = star;
        h = from;
      }
    }
  };

  let rules = null;
  const decide = ([patterns, runs], host) => {
    const at = patterns.findIndex((pattern) => wildmatch(pattern, host));
    if (at < 0) return { decision: 'refused' };
    let run = 0;
    for (let end = runs[0][0]; end <= at; end += runs[run][0]) run++;
    const [, letter, file, line, map] = runs[run];
    return { decision: letter === 'P' ? 'permit' : 'deny', pattern: patterns[at], file: rules.files[file], line, map };
  };

  const add = (parent, tag, text, type) => {
    const element = parent.appendChild(document.createElement(tag));
    if (text !== undefined) element.textContent = text;
    if (type) element.className = type;
    return element;
  };

  const addDecision = (row, label, made) => {
    const cell = add(row, 'td');
    cell.dataset.l = label;
    add(cell, 'b', made.decision);
    if (made.pattern === undefined) {
      add(cell, 'span', ' nothing covers it', 'by');
      return;
    }
    cell.append(made.map ? ` by map ${made.map} ` : ' by the rule ');
    add(cell, 'code', shown(made.pattern));
    add(cell, 'span', ` ${shown(made.file)}:${made.line}`, 'by');
  };

  const answer = () => {
    const host = byId('host').value.trim();
    const table = byId('decisions');
    const body = table.tBodies[0];
    body.replaceChildren();
    table.hidden = true;
    if (host === '' || /[*\s]/.test(host)) {
      byId('answer').textContent = host === '' ? '' : 'A host is one word without *.';
      return;
    }
    rules = rules || JSON.parse(byId('rules').textContent);
    const otherwise = [], uncovered = [];
    let through = 0;
    for (const [name, before, after] of rules.proxies) {
      const proxy = shown(name), was = decide(before, bytesOf(host)), is = decide(after, bytesOf(host));
      if (was.pattern === undefined && is.pattern === undefined) {
        uncovered.push(proxy);
        continue;
      }
      const row = add(body, 'tr');
      add(row, 'th', proxy).scope = 'row';
      addDecision(row, 'Before', was);
      addDecision(row, 'After', is);
      if (is.decision === 'permit') through++;
      if ((was.decision === 'permit') !== (is.decision === 'permit')) {
        otherwise.push(proxy);
        row.className = 'otherwise';
        add(row.lastChild, 'span', 'otherwise than before', 'mark');
      }
    }
    if (uncovered.length) {
      const row = add(body, 'tr');
      add(row, 'th', plural(uncovered.length, 'proxy', 'proxies')).scope = 'row';
      const cell = add(row, 'td');
      cell.colSpan = 2;
      add(cell, 'b', 'refused');
      add(cell, 'span', ' nothing covers it, before and after: ', 'by');
      cell.append(uncovered.join(', '));
    }
    table.hidden = false;
    byId('answer').textContent = `${host} gets through at ${through} of ${plural(rules.proxies.length, 'proxy', 'proxies')}; ` +
      (otherwise.length ? `otherwise than before at ${otherwise.length}: ${otherwise.join(', ')}.` : 'nowhere otherwise than before.');
  };

  // Folds open while they hold something that was asked for, and go back to how they were.
  const folds = [...document.querySelectorAll('details.fold')].map((fold) => [fold, fold.open]);
  const filter = () => {
    const wanted = byId('filter').value.trim().toLowerCase();
    const rows = document.querySelectorAll('.f');
    let left = 0;
    document.body.classList.toggle('filtered', wanted !== '');
    for (const row of rows) {
      row.hidden = wanted !== '' && !row.textContent.toLowerCase().includes(wanted);
      if (!row.hidden) left++;
    }
    for (const [fold, wasOpen] of folds) fold.open = wanted === '' ? wasOpen : fold.querySelector('.f:not([hidden])') !== null;
    byId('shown').textContent = wanted === '' ? '' : `${left} of ${plural(rows.length, 'entry', 'entries')} shown in all lists; what is hidden is not printed either`;
  };

  const listen = (id, work) => {
    let waiting = 0;
    byId(id)?.addEventListener('input', () => {
      clearTimeout(waiting);
      waiting = setTimeout(work, 120);
    });
  };
  listen('filter', filter);
  listen('host', answer);
  for (const box of document.querySelectorAll('.box')) box.hidden = false;
  for (const note of document.querySelectorAll('.scriptless')) note.hidden = true;
})();
