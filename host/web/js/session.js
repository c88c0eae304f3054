// Who is logged in. The session itself is a cookie that scripts cannot see.
import { ApiError, SESSION_ENDED, post } from './api.js';

const API = 'VELM.Oculora.Account';

// The user of the running session, or null.
export async function current() {
  try {
    return await post(API, 'Whoami');
  } catch (error) {
    if (error instanceof ApiError && error.code === SESSION_ENDED) return null;
    throw error;
  }
}

export const logIn = (account, passwd) => post(API, 'Login', { account, passwd });
export const logOut = () => post(API, 'Logout');
