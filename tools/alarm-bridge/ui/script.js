// Read-only view of the Alertmanager this page is served by: its active
// alerts, one table per service. Every text from the server goes in through
// textContent, never as markup.
'use strict';

const COLUMNS = ['Alarm', 'Severity', 'Application', 'Service', 'Node', 'Since', 'Texts'];
// Shown in their own columns; every other annotation is listed under Texts.
const SHOWN = new Set(['severity']);

function cell(row, text, className) {
  const td = row.insertCell();
  td.textContent = text;
  if (className) {
    td.className = className;
  }
  return td;
}

function alertRow(table, alert) {
  const labels = alert.labels || {};
  const notes = alert.annotations || {};
  const row = table.insertRow();
  row.className = 'alert';
  const id = labels.alarm_id ? ' (' + labels.alarm_id + ')' : '';
  cell(row, (labels.alertname || '') + id);
  cell(row, notes.severity || '', notes.severity || '');
  cell(row, labels.app_id || '');
  cell(row, labels.service || '');
  cell(row, labels.node || '');
  cell(row, alert.startsAt ? new Date(alert.startsAt).toLocaleString() : '');
  const texts = cell(row, '', 'texts');
  for (const key of Object.keys(notes).sort()) {
    if (!SHOWN.has(key)) {
      const line = document.createElement('div');
      line.textContent = key + ': ' + notes[key];
      texts.appendChild(line);
    }
  }
}

function render(alerts) {
  const byService = new Map();
  for (const alert of alerts) {
    const service = (alert.labels && alert.labels.service) || '(no service)';
    if (!byService.has(service)) {
      byService.set(service, []);
    }
    byService.get(service).push(alert);
  }
  const out = document.getElementById('alerts');
  out.replaceChildren();
  for (const service of [...byService.keys()].sort()) {
    const heading = document.createElement('h2');
    heading.textContent = service;
    const table = document.createElement('table');
    const head = table.createTHead().insertRow();
    for (const name of COLUMNS) {
      const th = document.createElement('th');
      th.textContent = name;
      head.appendChild(th);
    }
    const rows = byService.get(service);
    rows.sort((a, b) => (a.startsAt || '').localeCompare(b.startsAt || ''));
    const body = table.createTBody();
    for (const alert of rows) {
      alertRow(body, alert);
    }
    out.append(heading, table);
  }
}

async function refresh() {
  const status = document.getElementById('status');
  try {
    // Relative: the page works under any path prefix Alertmanager is served at.
    const response = await fetch('api/v2/alerts?active=true&silenced=false&inhibited=false');
    if (!response.ok) {
      throw new Error('HTTP ' + response.status);
    }
    const alerts = await response.json();
    render(alerts);
    status.className = '';
    status.textContent = alerts.length + ' active, updated ' + new Date().toLocaleTimeString();
  } catch (error) {
    status.className = 'failed';
    status.textContent = 'Cannot read the alerts: ' + error.message;
  }
}

refresh();
setInterval(refresh, 15000);
