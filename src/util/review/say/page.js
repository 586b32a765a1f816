'use strict';
// Folds open while they hold something that was asked for, and go back to how they were.
const filter = document.getElementById('filter'), rows = [...document.querySelectorAll('.f')];
const folds = [...document.querySelectorAll('.fold')].map((fold) => [fold, fold.open]);
filter.addEventListener('input', () => {
  const wanted = filter.value.trim().toLowerCase();
  for (const row of rows) row.hidden = wanted !== '' && !row.textContent.toLowerCase().includes(wanted);
  const left = rows.filter((row) => !row.hidden);
  for (const [fold, was] of folds) fold.open = wanted ? left.some((row) => fold.contains(row)) : was;
  const told = `${left.length} of ${rows.length} shown in all lists; what is hidden is not printed`;
  document.getElementById('shown').textContent = wanted && told;
});
filter.parentElement.hidden = false;
