// The recorder's own words as a sentence: "its disk is full" becomes "Its disk is full."
export function sentence(text) {
  const trimmed = text.trim();
  if (!trimmed) return '';
  const capital = trimmed[0].toUpperCase() + trimmed.slice(1);
  return /[.!?…]$/.test(capital) ? capital : `${capital}.`;
}
