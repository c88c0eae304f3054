// How fast single frames are played: the recorder's rates in plain words. Pure.
//
// Above 0 every rate-th frame is shown, each as long as the recording says; below 0 every frame, so many times as long.

export const RATES = [-8, -4, -2, 1, 2, 4, 8, 16];

export const rateLabel = (rate) => (rate < 0 ? `1/${-rate}` : `${rate}×`);

export function rateInWords(rate) {
  if (rate === 1) return 'Normal speed';
  return rate < 0 ? `${-rate} times slower` : `${rate} times faster`;
}

// How many frames further the next one is.
export const stepOf = (rate) => Math.max(rate, 1);
