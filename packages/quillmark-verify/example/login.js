/** The page's side of a login. */

import { selectCertificate, signAuthToken } from "./quillmark.js";

const post = async (path, body) => {
  const response = await fetch(path, { method: "POST", body: JSON.stringify(body ?? {}) });
  const answer = await response.json();
  if (!response.ok) throw new Error(answer.error);
  return answer;
};

document.getElementById("login").addEventListener("click", async () => {
  const outcome = document.getElementById("outcome");
  try {
    const { challenge } = await post("/challenge");
    const { Cert: certificate } = await selectCertificate();
    const signature = await signAuthToken(challenge);
    const { name } = await post("/login", { certificate, signature });
    outcome.textContent = `Welcome, ${name}`;
  } catch (error) {
    outcome.textContent = error.message;
  }
});
